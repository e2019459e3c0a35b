#include "boxes/stss_box.h"

#include <algorithm>
#include <array>

#include "base/big_endian.h"
#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

StssBox::StssBox(QiroK7MStream* stream, uint32_t maxSampleCount,
                 const QiroK7MAllocatorCallBacks* allocator)
    : TableBox(stream, kType, sizeof(uint32_t), kEntrySize, maxSampleCount, allocator),
      entries_(GetAllocator()),
      highestSoFar_(K7MAllocator<uint32_t>(allocator)) {
  ThrowIf(maxSampleCount > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
}

void StssBox::AddSyncSample(uint32_t sampleNumber) {
  std::array<uint8_t, kEntrySize> bytes;
  StoreBigEndian(bytes.data(), sampleNumber);
  AppendEntry(bytes);
}

void StssBox::ReadExtensionPayloadData() {
  ThrowIf(!CanRead(sizeof(uint32_t)), kQiroK7MErrorBoxTruncated);
  const uint32_t count = Stream().ReadDWORD();
  ThrowIf(count > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
  ThrowIf(!CanRead(count * kEntrySize), kQiroK7MErrorBoxTruncated);
  ReadRecords(Stream(), entries_, count, kEntrySize,
              [](const uint8_t* bytes) { return SyncSampleEntry{LoadBigEndian<uint32_t>(bytes)}; });
  const bool isAscending = std::is_sorted(entries_.begin(), entries_.end(),
                                          [](const SyncSampleEntry& a, const SyncSampleEntry& b) {
                                            return a.sampleNumber < b.sampleNumber;
                                          });
  if (!isAscending) {
    highestSoFar_.reserve(entries_.size());
    uint32_t highest = 0;
    for (const SyncSampleEntry& entry : entries_) {
      highest = std::max(highest, entry.sampleNumber);
      highestSoFar_.push_back(highest);
    }
  }
}

void StssBox::Describe(FieldSink& sink) {
  DescribeTable(sink, "entries", entries_, [&sink](const SyncSampleEntry& entry) {
    sink.Number("sample_number", entry.sampleNumber);
  });
}

Iterator<SyncSampleEntry> StssBox::FindBySampleNumber(uint32_t number) const {
  const SyncSampleEntry* const first = entries_.data();
  const SyncSampleEntry* const end = first + entries_.size();
  if (!highestSoFar_.empty()) {
    const auto place = std::lower_bound(highestSoFar_.begin(), highestSoFar_.end(), number);
    return {first + (place - highestSoFar_.begin()), end};
  }
  return {std::partition_point(
              first, end,
              [number](const SyncSampleEntry& entry) { return entry.sampleNumber < number; }),
          end};
}

}  // namespace qiro::k7m::impl
