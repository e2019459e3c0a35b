#include "boxes/sdtp_box.h"

#include <algorithm>

#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

SdtpBox::SdtpBox(QiroK7MStream* stream, uint32_t maxSampleCount,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, 0, 0, allocator), entries_(K7MAllocator<uint8_t>(allocator)) {
  ThrowIf(maxSampleCount > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
  Grow(kVersionAndFlagsSize + maxSampleCount);
}

void SdtpBox::SetEntry(uint32_t index, uint8_t value) {
  ThrowIf(index >= kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
  if (index >= entries_.size()) {
    entries_.resize(index + 1);
  }
  entries_[index] = value;
  unwrittenFrom_ = std::min<size_t>(unwrittenFrom_, index);
}

uint8_t SdtpBox::GetEntry(uint32_t index) const {
  return index < entries_.size() ? entries_[index] : 0;
}

void SdtpBox::WriteExtensionBox() { WriteFrom(0); }

void SdtpBox::UpdateExtensionBox() { WriteFrom(unwrittenFrom_); }

void SdtpBox::WriteFrom(size_t index) {
  if (index < entries_.size()) {
    SeekTo(GetBeginOffset() + GetHeaderSize() + index);
    Stream().WriteBYTES(entries_.data() + index, entries_.size() - index);
  }
  unwrittenFrom_ = entries_.size();
}

void SdtpBox::ReadExtensionPayloadData() {
  ThrowIf(count_ > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
  ThrowIf(!CanRead(count_), kQiroK7MErrorBoxTruncated);
  ReadTable(
      Stream(), count_, 1, [this](uint64_t more) { ReserveMore(entries_, more); },
      [this](const uint8_t* bytes, uint64_t count) {
        entries_.insert(entries_.end(), bytes, bytes + count);
      });
}

Iterator<uint8_t> SdtpBox::FindBySampleNumber(uint32_t number) const {
  const uint8_t* const end = entries_.data() + entries_.size();
  return {number >= 1 && number <= entries_.size() ? entries_.data() + number - 1 : end, end};
}

}  // namespace qiro::k7m::impl
