#include "boxes/afra_box.h"

#include <array>
#include <vector>

#include "base/big_endian.h"

namespace qiro::k7m::impl {
namespace {

/// Numbers of fragments and offsets have their long forms; there are no global entries.
constexpr uint8_t kWrittenForm = 0xC0;
constexpr uint64_t kCountSize = sizeof(uint32_t);
constexpr uint64_t kEntrySize = sizeof(AfraEntry::time) + sizeof(AfraEntry::offset);

}  // namespace

AfraBox::AfraBox(QiroK7MStream* stream, uint8_t version, uint32_t timeScale,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, version, 0, allocator),
      timeScale_(timeScale),
      entries_(K7MAllocator<AfraEntry>(allocator)) {
  AccountForPayload();
}

void AfraBox::AccountForPayload() {
  FullBox::AccountForPayload();
  Grow(sizeof(kWrittenForm) + sizeof(timeScale_) + kCountSize);
}

void AfraBox::AddEntry(uint64_t time, uint64_t offset) {
  entries_.push_back({time, offset});
  Grow(kEntrySize);
}

void AfraBox::IncrementSamplesOffset(uint64_t delta) {
  for (AfraEntry& entry : entries_) {
    entry.offset += delta;
  }
}

void AfraBox::WriteBox() {
  WriteExtensionBox();
  WriteBoxHeader();
}

void AfraBox::WriteBoxHeader() {
  ThrowIf(GetTotalSize() > 0xFFFFFFFF, kQiroK7MErrorStdException);
  std::array<uint8_t, kMinHeaderSize + kVersionAndFlagsSize> bytes;
  StoreBigEndian(bytes.data(), static_cast<uint32_t>(GetTotalSize()));
  StoreBigEndian(bytes.data() + 4, GetBoxType());
  StoreBigEndian(bytes.data() + 8, uint32_t{GetVersion()} << 24 | GetFlags());
  SeekTo(GetBeginOffset());
  Stream().WriteBYTES(bytes.data(), bytes.size());
}

void AfraBox::WriteExtensionBox() {
  SeekTo(GetBeginOffset() + GetHeaderSize());
  Stream().WriteBYTE(kWrittenForm);
  Stream().WriteDWORD(timeScale_);
  UpdateExtensionBox();
}

void AfraBox::UpdateExtensionBox() {
  std::vector<uint8_t> bytes(kCountSize + kEntrySize * entries_.size());
  uint8_t* next = bytes.data();
  StoreBigEndian(next, static_cast<uint32_t>(entries_.size()));
  next += kCountSize;
  for (const AfraEntry& entry : entries_) {
    StoreBigEndian(next, entry.time);
    StoreBigEndian(next + sizeof(entry.time), entry.offset);
    next += kEntrySize;
  }
  SeekTo(GetBeginOffset() + GetHeaderSize() + sizeof(kWrittenForm) + sizeof(timeScale_));
  Stream().WriteBYTES(bytes.data(), bytes.size());
}

}  // namespace qiro::k7m::impl
