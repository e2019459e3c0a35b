#include "writer/coding_type.h"

#include "base/big_endian.h"
#include "boxes/box_header.h"

namespace qiro::k7m::impl {
namespace {

/// 0 when the bytes hold no box header.
uint32_t FirstBoxType(std::span<const uint8_t> codecHeader) {
  return codecHeader.size() < kMinHeaderSize ? 0 : LoadBigEndian<uint32_t>(codecHeader.data() + 4);
}

}  // namespace

uint32_t VideoCodingOf(std::span<const uint8_t> codecHeader) {
  switch (FirstBoxType(codecHeader)) {
    case FourCc("hvcC"):
      return FourCc("hvc1");
    case FourCc("vpcC"):
      return FourCc("vp09");
    case FourCc("av1C"):
      return FourCc("av01");
    case FourCc("esds"):
      return FourCc("mp4v");
    default:
      return FourCc("avc1");
  }
}

uint32_t AudioCodingOf(std::span<const uint8_t> codecHeader) {
  switch (FirstBoxType(codecHeader)) {
    case FourCc("dOps"):
      return FourCc("Opus");
    case FourCc("dfLa"):
      return FourCc("fLaC");
    case FourCc("dac3"):
      return FourCc("ac-3");
    case FourCc("dec3"):
      return FourCc("ec-3");
    default:
      return FourCc("mp4a");
  }
}

}  // namespace qiro::k7m::impl
