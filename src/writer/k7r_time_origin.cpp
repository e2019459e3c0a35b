#include "writer/k7r_time_origin.h"

#include "base/big_endian.h"
#include "boxes/box_header.h"

namespace qiro::k7m::impl {

uint32_t ReadVorpTimeOffset(std::span<const uint8_t> extension) {
  constexpr uint32_t kTimeOffsetType = FourCc("amto");
  while (extension.size() >= kMinHeaderSize) {
    const auto size = LoadBigEndian<uint32_t>(extension.data());
    if (LoadBigEndian<uint32_t>(extension.data() + sizeof(size)) == kTimeOffsetType) {
      const auto number = extension.subspan(kMinHeaderSize);
      return number.size() < sizeof(uint32_t) ? 0 : LoadBigEndian<uint32_t>(number.data());
    }
    if (size < kMinHeaderSize || size > extension.size()) {
      break;
    }
    extension = extension.subspan(size);
  }
  return 0;
}

}  // namespace qiro::k7m::impl
