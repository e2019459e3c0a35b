#include "boxes/stsz_box.h"

#include <algorithm>
#include <array>

#include "base/big_endian.h"
#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

StszBox::StszBox(QiroK7MStream* stream, uint32_t maxSampleCount,
                 const QiroK7MAllocatorCallBacks* allocator)
    : TableBox(stream, kType, sizeof(constantSize_) + sizeof(sampleCount_), kEntrySize,
               maxSampleCount, allocator),
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
  Stream().WriteDWORD(constantSize_);
  UpdateExtensionBox();
}

void StszBox::ReadExtensionPayloadData() {
  ThrowIf(!CanRead(sizeof(constantSize_) + sizeof(sampleCount_)), kQiroK7MErrorBoxTruncated);
  constantSize_ = Stream().ReadDWORD();
  sampleCount_ = Stream().ReadDWORD();
  ThrowIf(sampleCount_ > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
  if (constantSize_ != 0) {
    return;
  }
  ThrowIf(!CanRead(sampleCount_ * kEntrySize), kQiroK7MErrorBoxTruncated);
  ReadRecords(Stream(), entries_, sampleCount_, kEntrySize,
              [](const uint8_t* bytes) { return SampleSizeEntry{LoadBigEndian<uint32_t>(bytes)}; });
  SumStretches();
}

void StszBox::SumStretches() {
  sizeBeforeStretch_.reserve(entries_.size() / kStretch + 1);
  uint64_t sum = 0;
  for (size_t begin = 0; begin < entries_.size(); begin += kStretch) {
    sizeBeforeStretch_.push_back(sum);
    const size_t end = std::min<size_t>(begin + kStretch, entries_.size());
    for (size_t i = begin; i < end; ++i) {
      sum += entries_[i].size;
    }
  }
}

uint64_t StszBox::SizeBefore(uint64_t index) const {
  if (index == 0) {
    return 0;
  }
  const uint64_t stretch = (index - 1) / kStretch;
  uint64_t sum = sizeBeforeStretch_[stretch];
  for (uint64_t i = stretch * kStretch; i < index; ++i) {
    sum += entries_[i].size;
  }
  return sum;
}

uint64_t StszBox::SizeOfSamples(uint32_t number, uint32_t count) const {
  if (constantSize_ != 0) {
    return uint64_t{constantSize_} * count;
  }
  return SizeBefore(uint64_t{number} - 1 + count) - SizeBefore(uint64_t{number} - 1);
}

void StszBox::Describe(FieldSink& sink) {
  sink.Number("sample_size", constantSize_);
  sink.Number("sample_count", sampleCount_);
  DescribeTable(sink, "entries", entries_,
                [&sink](const SampleSizeEntry& entry) { sink.Number("entry_size", entry.size); });
}

SampleSizeIterator StszBox::FindBySampleNumber(uint32_t number) const {
  if (constantSize_ != 0) {
    return {constantSize_, sampleCount_};
  }
  const SampleSizeEntry* const end = entries_.data() + entries_.size();
  return number >= 1 && number <= entries_.size()
             ? SampleSizeIterator(entries_.data() + number - 1, end)
             : SampleSizeIterator(end, end);
}

}  // namespace qiro::k7m::impl
