#include "boxes/stsz_box.h"

#include <algorithm>
#include <array>

#include "base/big_endian.h"
#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

StszBox::StszBox(QiroK7MStream* stream, uint32_t maxSampleCount,
                 const QiroK7MAllocatorCallBacks* allocator)
    : TableBox(stream, kType, sizeof(constant_) + sizeof(sampleCount_), kEntrySize, maxSampleCount,
               allocator),
      entries_(GetAllocator()),
      sizeBeforeStretch_(K7MAllocator<uint64_t>(allocator)) {
  ThrowIf(maxSampleCount > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
}

void StszBox::AddSampleSize(uint32_t size) {
  std::array<uint8_t, kEntrySize> bytes;
  StoreBigEndian(bytes.data(), size);
  AppendEntry(bytes);
}

void StszBox::WriteExtensionBox() {
  SeekTo(GetBeginOffset() + GetHeaderSize());
  Stream().WriteDWORD(constant_.size);
  UpdateExtensionBox();
}

void StszBox::ReadExtensionPayloadData() {
  ThrowIf(!CanRead(sizeof(constant_) + sizeof(sampleCount_)), kQiroK7MErrorBoxTruncated);
  constant_.size = Stream().ReadDWORD();
  sampleCount_ = Stream().ReadDWORD();
  ThrowIf(sampleCount_ > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
  if (constant_.size != 0) {
    return;
  }
  ThrowIf(!CanRead(sampleCount_ * kEntrySize), kQiroK7MErrorBoxTruncated);
  ReadRecords(Stream(), entries_, sampleCount_, kEntrySize,
              [](const uint8_t* bytes) { return SampleSizeEntry{LoadBigEndian<uint32_t>(bytes)}; });
}

uint64_t StszBox::Sum(uint64_t begin, uint64_t end) const {
  uint64_t sum = 0;
  for (uint64_t i = begin; i < end; ++i) {
    sum += entries_[i].size;
  }
  return sum;
}

void StszBox::SumStretches() const {
  if (!sizeBeforeStretch_.empty()) {
    return;
  }
  sizeBeforeStretch_.reserve(entries_.size() / kStretch + 1);
  uint64_t sum = 0;
  for (uint64_t begin = 0; begin < entries_.size(); begin += kStretch) {
    sizeBeforeStretch_.push_back(sum);
    sum += Sum(begin, std::min<uint64_t>(begin + kStretch, entries_.size()));
  }
}

uint64_t StszBox::SizeBefore(uint64_t index) const {
  if (index == 0) {
    return 0;
  }
  const uint64_t stretch = (index - 1) / kStretch;
  return sizeBeforeStretch_[stretch] + Sum(stretch * kStretch, index);
}

uint64_t StszBox::SizeOfSamples(uint32_t number, uint32_t count) const {
  if (constant_.size != 0) {
    return uint64_t{constant_.size} * count;
  }
  const uint64_t first = uint64_t{number} - 1;
  if (count <= kStretch) {
    return Sum(first, first + count);
  }
  SumStretches();
  return SizeBefore(first + count) - SizeBefore(first);
}

void StszBox::Describe(FieldSink& sink) {
  sink.Number("sample_size", constant_.size);
  sink.Number("sample_count", sampleCount_);
  DescribeTable(sink, "entries", entries_,
                [&sink](const SampleSizeEntry& entry) { sink.Number("entry_size", entry.size); });
}

SampleSizeIterator StszBox::FindBySampleNumber(uint32_t number) const {
  if (constant_.size != 0) {
    return {&constant_, sampleCount_};
  }
  const SampleSizeEntry* const end = entries_.data() + entries_.size();
  return number >= 1 && number <= entries_.size()
             ? SampleSizeIterator(entries_.data() + number - 1, end)
             : SampleSizeIterator(end, end);
}

}  // namespace qiro::k7m::impl
