#include "boxes/ctts_box.h"

#include "base/big_endian.h"
#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

CttsBox::CttsBox(QiroK7MStream* stream, uint32_t maxSampleCount,
                 const QiroK7MAllocatorCallBacks* allocator)
    : TableBox(stream, kType, sizeof(uint32_t), kEntrySize, maxSampleCount, allocator),
      runs_(GetAllocator()) {
  ThrowIf(maxSampleCount > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
}

void CttsBox::AddCompositionOffset(uint32_t offset) {
  if (pending_.count != 0 && offset != pending_.value) {
    AppendEntry(EncodeRun(pending_.count, pending_.value));
    pending_.count = 0;
  }
  ++pending_.count;
  pending_.value = offset;
}

void CttsBox::UpdateExtensionBox() {
  if (pending_.count == 0) {
    WriteCount(GetWrittenCount());
    return;
  }
  WriteProvisionally(EncodeRun(pending_.count, pending_.value));
  WriteCount(GetWrittenCount() + 1);
}

void CttsBox::ReadExtensionPayloadData() {
  ThrowIf(!CanRead(sizeof(uint32_t)), kQiroK7MErrorBoxTruncated);
  const uint32_t count = Stream().ReadDWORD();
  ThrowIf(count > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
  ThrowIf(!CanRead(count * kEntrySize), kQiroK7MErrorBoxTruncated);
  uint32_t nextSample = 1;
  bool hasEmptyRuns = false;
  ReadRecords(Stream(), runs_, count, kEntrySize, [&](const uint8_t* bytes) {
    const CttsEntry run{LoadBigEndian<uint32_t>(bytes), LoadBigEndian<uint32_t>(bytes + 4),
                        nextSample, 0};
    nextSample += run.count;
    hasEmptyRuns = hasEmptyRuns || run.count == 0;
    ThrowIf(nextSample < run.firstSample, kQiroK7MErrorCttsCount);
    return run;
  });
  if (hasEmptyRuns) {
    CountEmptyRuns(runs_);
  }
}

void CttsBox::Describe(FieldSink& sink) {
  DescribeTable(sink, "entries", runs_, [&sink](const CttsEntry& run) {
    sink.Number("sample_count", run.count);
    sink.SignedNumber("sample_offset", static_cast<int32_t>(run.compositionOffset));
  });
}

CttsIterator CttsBox::FindBySampleNumber(uint32_t number) const {
  const CttsEntry* const first = runs_.data();
  const CttsEntry* const end = first + runs_.size();
  CttsEntry wanted;
  wanted.firstSample = number;
  const auto* const run = FindLastAtOrBefore(
      first, end, wanted,
      [](const CttsEntry& a, const CttsEntry& b) { return CompareBySampleNumber(a, b); });
  return run == end ? CttsIterator()
                    : CttsIterator(run, end - 1, number - run->firstSample, (end - 1)->count);
}

}  // namespace qiro::k7m::impl
