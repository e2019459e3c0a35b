#include "boxes/full_box.h"

#include <algorithm>

namespace qiro::k7m::impl {

FullBox::FullBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, header, allocator) {
  AddPrefix(kVersionAndFlagsSize);
}

FullBox::FullBox(QiroK7MStream* stream, uint32_t type, uint8_t version, uint32_t flags,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, type, allocator), version_(version), flags_(flags & 0xFFFFFF) {
  AddPrefix(kVersionAndFlagsSize);
}

void FullBox::WriteBoxHeader() {
  Box::WriteBoxHeader();
  Stream().WriteDWORD(uint32_t{version_} << 24 | flags_);
}

void FullBox::ReadCommonPayloadData() {
  ThrowIf(!CanRead(kVersionAndFlagsSize), kQiroK7MErrorBadFullBoxHeader);
  const uint32_t word = Stream().ReadDWORD();
  version_ = static_cast<uint8_t>(word >> 24);
  flags_ = FlagsOf(word);
}

void FullBox::UpdateVersioned(uint64_t offset, uint64_t value) {
  SeekTo(GetBeginOffset() + GetBoxHeader().GetHeaderSize() + kVersionAndFlagsSize + offset);
  if (version_ != 0) {
    Stream().WriteDDWORD(value);
  } else {
    Stream().WriteDWORD(static_cast<uint32_t>(std::min<uint64_t>(value, 0xFFFFFFFF)));
  }
}

void FullBox::AccountForPayload() { Grow(kVersionAndFlagsSize); }

}  // namespace qiro::k7m::impl
