#include "boxes/stsc_box.h"

#include <algorithm>
#include <array>

#include "base/big_endian.h"

namespace qiro::k7m::impl {

void StscBox::AddChunks(uint32_t firstChunk, uint32_t samplesPerChunk, uint32_t descriptionIndex) {
  std::array<uint8_t, kEntrySize> bytes;
  StoreBigEndian(bytes.data(), firstChunk);
  StoreBigEndian(bytes.data() + 4, samplesPerChunk);
  StoreBigEndian(bytes.data() + 8, descriptionIndex);
  AppendEntry(bytes);
}

void StscBox::ReadExtensionPayloadData() {
  const uint32_t promised = Stream().ReadDWORD();
  const uint32_t bufferSize = promised * kEntrySize;  // Wraps in 32 bits.
  const ArrayAutoPtr<uint8_t> buffer(new uint8_t[bufferSize]);
  const uint64_t wanted = std::min<uint64_t>(bufferSize, BytesLeft());
  const uint64_t delivered = Stream().ReadSome(buffer.Get(), wanted);
  TakeEntries(buffer.Get(), std::min<uint64_t>(promised, delivered / kEntrySize));
}

void StscBox::TakeEntries(const uint8_t* bytes, uint64_t count) {
  if (count == 0) {
    runs_.push_back(ChunkEntry());
    return;
  }
  runs_.reserve(count);
  ChunkEntry run;
  for (uint64_t i = 0; i < count; ++i, bytes += kEntrySize) {
    const auto firstChunk = LoadBigEndian<uint32_t>(bytes);
    if (i == 0) {
      ThrowIf(firstChunk != 1, kQiroK7MErrorBadChunkMap);
    } else {
      ThrowIf(firstChunk < run.firstChunk, kQiroK7MErrorBadChunkMap);
      runs_.back().chunkCount = firstChunk - run.firstChunk;
      run.firstSample += runs_.back().chunkCount * run.samplesPerChunk;
    }
    run.firstChunk = firstChunk;
    run.samplesPerChunk = LoadBigEndian<uint32_t>(bytes + 4);
    run.descriptionIndex = LoadBigEndian<uint32_t>(bytes + 8);
    runs_.push_back(run);
  }
  usedRuns_ = CountEmptyRuns(runs_);
}

void StscBox::Describe(FieldSink& sink) {
  DescribeTable(sink, "entries", runs_, [&sink](const ChunkEntry& run) {
    sink.Number("first_chunk", run.firstChunk);
    sink.Number("samples_per_chunk", run.samplesPerChunk);
    sink.Number("sample_description_index", run.descriptionIndex);
  });
}

StscIterator StscBox::FindBySampleNumber(uint32_t number) const {
  const ChunkEntry* const first = runs_.data();
  const ChunkEntry* const end = first + usedRuns_;
  ChunkEntry wanted;
  wanted.firstSample = number;
  const ChunkEntry* run = FindLastAtOrBefore(first, end, wanted, CompareBySampleNumber<ChunkEntry>);
  while (run != end && run != first && !run->HasSamples()) {
    --run;
  }
  if (run == end || !run->HasSamples() || run->firstSample > number) {
    return {};
  }
  const uint32_t chunkIndex = run->GetChunkIndexFromSampleNumber(number);
  return chunkIndex < run->chunkCount ? StscIterator(run, end, chunkIndex) : StscIterator();
}

}  // namespace qiro::k7m::impl
