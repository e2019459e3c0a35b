#include "boxes/stts_box.h"

#include <algorithm>
#include <array>

#include "base/big_endian.h"
#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

void CompactSttsArray::Read(QiroK7MStream& stream, uint64_t count) {
  CompactSttsEntry run;
  ReadRecords(stream, runs_, count, kEntrySize, [&run](const uint8_t* bytes) {
    run.Add(LoadBigEndian<uint32_t>(bytes), LoadBigEndian<uint32_t>(bytes + 4));
    return run;
  });
  usedRuns_ = CountEmptyRuns(runs_);
}

SttsIterator CompactSttsArray::FindByDecodeTime(uint64_t begin, uint64_t end) const {
  if (usedRuns_ == 0 || begin > runs_[usedRuns_ - 1].LastSampleTime() || end < begin) {
    return {};
  }
  const CompactSttsEntry* const first = runs_.data();
  const CompactSttsEntry* const last = first + usedRuns_ - 1;
  const auto runAt = [&](uint64_t t) {
    CompactSttsEntry wanted;
    wanted.time = t;
    return FindLastAtOrBefore(first, last + 1, wanted, CompareByTime);
  };
  // A run that takes no time starts when the next one does, so that the search has stepped over it
  // unless it is the last.
  const CompactSttsEntry* const beginRun = runAt(begin);
  const CompactSttsEntry* const endRun = runAt(end);
  if (!beginRun->HasSamples() || !endRun->HasSamples()) {
    return {};  // Only times that wrap lead here.
  }
  const uint32_t index = beginRun->FindIndexByDecodeTime(begin);
  const uint32_t limit = endRun->FindLastIndexAtOrBefore(end) + 1;
  if (beginRun > endRun || (beginRun == endRun && index >= limit)) {
    return {};
  }
  return {beginRun, endRun, index, limit};
}

SttsIterator CompactSttsArray::All() const {
  const auto* first = runs_.data();
  const auto* const end = first + usedRuns_;
  while (first != end && first->count == 0) {
    ++first;
  }
  return first == end ? SttsIterator() : SttsIterator(first, end - 1, 0, (end - 1)->count);
}

SttsBox::SttsBox(QiroK7MStream* stream, uint32_t maxSampleCount, uint32_t lastSampleDuration,
                 const QiroK7MAllocatorCallBacks* allocator)
    : TableBox(stream, kType, sizeof(uint32_t), kEntrySize, maxSampleCount, allocator),
      lastSampleDuration_(lastSampleDuration) {
  ThrowIf(maxSampleCount > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
}

void SttsBox::AddSample(uint64_t decodeTime) {
  if (hasSample_) {
    const auto delta = static_cast<uint32_t>(decodeTime - previousTime_);
    if (pending_.count != 0 && delta != pending_.value) {
      AppendEntry(EncodeRun(pending_.count, pending_.value));
      pending_.count = 0;
    }
    ++pending_.count;
    pending_.value = delta;
  }
  hasSample_ = true;
  previousTime_ = decodeTime;
}

void SttsBox::ReturnTo(const Progress& progress) {
  TableBox::ReturnTo(progress.table);
  pending_ = progress.pending;
  previousTime_ = progress.previousTime;
  hasSample_ = progress.hasSample;
}

void SttsBox::UpdateExtensionBox() {
  if (pending_.count != 0) {
    const auto pending = EncodeRun(pending_.count, pending_.value);
    const auto last = EncodeRun(1, lastSampleDuration_);
    std::array<uint8_t, 2 * kEntrySize> entries;
    std::copy(last.begin(), last.end(), std::copy(pending.begin(), pending.end(), entries.begin()));
    WriteProvisionally(entries);
    WriteCount(GetWrittenCount() + 2);
  } else if (hasSample_) {
    WriteProvisionally(EncodeRun(1, 1));
    WriteCount(1);
  } else {
    WriteCount(0);
  }
}

void SttsBox::ReadExtensionPayloadData() {
  // The count is read without a look at the box's end; the entries are checked against it.
  const uint32_t count = Stream().ReadDWORD();
  ThrowIf(count > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
  ThrowIf(!CanRead(count * kEntrySize), kQiroK7MErrorBoxTruncated);
  runs_.Read(Stream(), count);
}

void SttsBox::Describe(FieldSink& sink) {
  DescribeTable(sink, "entries", runs_.Runs(), [&sink](const CompactSttsEntry& run) {
    sink.Number("sample_count", run.count);
    sink.Number("sample_delta", run.delta);
  });
}

}  // namespace qiro::k7m::impl
