#include "boxes/table_box.h"

namespace qiro::k7m::impl {

TableBox::TableBox(QiroK7MStream* stream, uint32_t type, uint32_t fixedSize, uint64_t entrySize,
                   uint32_t maxEntryCount, const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, type, 0, 0, allocator) {
  Grow(kVersionAndFlagsSize + fixedSize);
  countOffset_ = GetTotalSize() - sizeof(writtenCount_);
  SetTotalSize(GetTotalSize() + entrySize * maxEntryCount);
}

void TableBox::AppendEntry(std::span<const uint8_t> entry) {
  WriteBehindEntries(entry);
  GrowEffectiveSize(entry.size());
  ++writtenCount_;
}

void TableBox::WriteProvisionally(std::span<const uint8_t> entries) { WriteBehindEntries(entries); }

void TableBox::WriteBehindEntries(std::span<const uint8_t> bytes) {
  ThrowIf(bytes.size() > GetTotalSize() - GetEffectiveSize(), kQiroK7MErrorSampleTableFull);
  SeekTo(GetBeginOffset() + GetEffectiveSize());
  Stream().WriteBYTES(bytes.data(), bytes.size());
}

void TableBox::WriteCount(uint32_t count) {
  SeekTo(GetBeginOffset() + countOffset_);
  Stream().WriteDWORD(count);
}

}  // namespace qiro::k7m::impl
