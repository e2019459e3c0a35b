#include "boxes/sample_entries.h"

#include <algorithm>
#include <string_view>

#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

namespace {

/// What the writer calls the coding: a length byte, that many characters, zeros. Empty for codings
/// that have no such name here.
std::array<uint8_t, 32> CompressorName(uint32_t coding) {
  std::string_view name;
  switch (coding) {
    case FourCc("VP6F"):
    case FourCc("VP6A"):
      name = "VP6 Coding";
      break;
    case FourCc("H264"):
    case FourCc("h264"):
    case FourCc("avc1"):
      name = "AVC Coding";
      break;
    default:
      break;
  }
  std::array<uint8_t, 32> field{};
  field[0] = static_cast<uint8_t>(name.size());
  std::copy(name.begin(), name.end(), field.begin() + 1);
  return field;
}

}  // namespace

K7MSampleEntry::K7MSampleEntry(AsBase, QiroK7MStream* stream, uint32_t type,
                               std::unique_ptr<SampleDescriptor> descriptor,
                               const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, type, allocator), descriptor_(std::move(descriptor)) {
  ThrowIf(descriptor_ == nullptr, kQiroK7MErrorInvalidArgument);
}

K7MSampleEntry::K7MSampleEntry(QiroK7MStream* stream, uint32_t type, uint16_t dataReferenceIndex,
                               std::unique_ptr<SampleDescriptor> descriptor,
                               const QiroK7MAllocatorCallBacks* allocator)
    : K7MSampleEntry(AsBase{}, stream, type, std::move(descriptor), allocator) {
  dataReferenceIndex_ = dataReferenceIndex;
  K7MSampleEntry::AccountForPayload();
}

K7MVideoSampleEntry::K7MVideoSampleEntry(QiroK7MStream* stream, uint32_t type,
                                         std::unique_ptr<SampleDescriptor> descriptor,
                                         const QiroK7MAllocatorCallBacks* allocator)
    : K7MSampleEntryWith(stream, type, std::move(descriptor), allocator),
      compressorName_(CompressorName(GetSampleDescriptor()->GetInfo().type)) {
  AccountForPayload();
}

K7MAudioSampleEntry::K7MAudioSampleEntry(QiroK7MStream* stream, uint32_t type,
                                         std::unique_ptr<SampleDescriptor> descriptor,
                                         const QiroK7MAllocatorCallBacks* allocator)
    : K7MSampleEntryWith(stream, type, std::move(descriptor), allocator) {
  AccountForPayload();
}

K7MVorpSampleEntry::K7MVorpSampleEntry(QiroK7MStream* stream, uint32_t type,
                                       std::unique_ptr<SampleDescriptor> descriptor,
                                       const QiroK7MAllocatorCallBacks* allocator)
    : K7MSampleEntryWith(stream, type, std::move(descriptor), allocator) {
  AccountForPayload();
}

void K7MSampleEntry::AccountForPayload() {
  FieldBox::AccountForPayload();
  Grow(CodecHeaderSize());
}

void K7MSampleEntry::WriteExtensionBox() {
  FieldBox::WriteExtensionBox();
  WriteCodecHeader();
}

void K7MSampleEntry::WriteCodecHeader() {
  const auto& codecHeader = descriptor_->GetCodecHeader();
  Stream().WriteBYTES(codecHeader.data(), codecHeader.size());
}

void K7MSampleEntry::ReadExtensionPayloadData() {
  FieldBox::ReadExtensionPayloadData();
  SetDescriptor(std::make_unique<SampleDescriptor>(GetBoxType(), ReadCodecHeader()));
}

void K7MSampleEntry::Describe(FieldSink& sink) {
  FieldBox::Describe(sink);
  DescribeCodecHeader(sink);
}

std::vector<uint8_t> K7MSampleEntry::ReadCodecHeader() {
  std::vector<uint8_t> codecHeader;
  const uint64_t size = BytesLeft();
  // Its length is told in 32 bits.
  ThrowIf(size > 0xFFFFFFFF, kQiroK7MErrorBoxTruncated);
  ReadTable(
      Stream(), size, 1, [&](uint64_t more) { ReserveMore(codecHeader, more); },
      [&](const uint8_t* bytes, uint64_t count) {
        codecHeader.insert(codecHeader.end(), bytes, bytes + count);
      });
  return codecHeader;
}

void K7MSampleEntry::DescribeCodecHeader(FieldSink& sink) const {
  if (descriptor_ != nullptr) {
    sink.Bytes("codec_header", descriptor_->GetCodecHeader());
  }
}

}  // namespace qiro::k7m::impl
