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
  ReadRecords(Stream(), runs_, count, kEntrySize, [&](const uint8_t* bytes) {
    const CompactCttsEntry run{afterLastSample_, LoadBigEndian<uint32_t>(bytes + 4)};
    afterLastSample_ += LoadBigEndian<uint32_t>(bytes);
    ThrowIf(afterLastSample_ < run.firstSample, kQiroK7MErrorCttsCount);
    return run;
  });
}

void CttsBox::Describe(FieldSink& sink) {
  DescribeTable(sink, "entries", runs_, [this, &sink](const CompactCttsEntry& run) {
    const CompactCttsEntry* const next = &run + 1;
    const uint32_t end = next == runs_.end() ? afterLastSample_ : next->firstSample;
    sink.Number("sample_count", end - run.firstSample);
    sink.SignedNumber("sample_offset", static_cast<int32_t>(run.compositionOffset));
  });
}

CttsIterator CttsBox::FindBySampleNumber(uint32_t number) const {
  const auto* const run =
      FindLastAtOrBefore(runs_.begin(), runs_.end(), CompactCttsEntry{number, 0},
                         CompareBySampleNumber<CompactCttsEntry>);
  return run == runs_.end() ? CttsIterator()
                            : CttsIterator(run, runs_.end(), number, afterLastSample_);
}

}  // namespace qiro::k7m::impl
