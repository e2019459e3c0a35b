#pragma once

#include <algorithm>
#include <cstdint>

namespace qiro::k7m::impl {

/// Sample numbers and chunk numbers count from 1; an index within a run counts from 0. Sums that
/// pass the width of their field wrap.

/// One sample's decode time.
struct SttsEntry {
  uint64_t decodeTime = 0;
  uint32_t sampleNumber = 0;
};

/// A run of samples with the same duration.
struct CompactSttsEntry {
  uint64_t time = 0;         ///< Decode time of the first sample.
  uint32_t firstSample = 1;  ///< Number of the first sample.
  uint32_t count = 0;        ///< Samples in the run.
  uint32_t delta = 0;        ///< Duration of each.
  uint32_t emptyBehind = 0;  ///< Runs without samples right behind this one.

  bool HasSamples() const { return count != 0; }

  /// Becomes the next run, which has `nextCount` samples of duration `nextDelta`.
  void Add(uint32_t nextCount, uint32_t nextDelta) {
    firstSample += count;
    time += uint64_t{count} * delta;
    count = nextCount;
    delta = nextDelta;
  }
  uint64_t GetSampleTime(uint32_t index) const { return time + uint64_t{delta} * index; }
  uint32_t GetSampleNumber(uint32_t index) const { return firstSample + index; }
  SttsEntry Get(uint32_t index) const { return {GetSampleTime(index), GetSampleNumber(index)}; }
  SttsEntry First() const { return Get(0); }
  SttsEntry Last() const { return Get(count - 1); }
  uint64_t LastSampleTime() const { return GetSampleTime(count - 1); }
  /// The first sample at or after `t`; the last one of the run when all are before `t`.
  uint32_t FindIndexByDecodeTime(uint64_t t) const {
    if (delta == 0 || time >= t) {
      return 0;
    }
    if (LastSampleTime() > t) {
      return static_cast<uint32_t>((t - time + delta - 1) / delta);
    }
    return count - 1;
  }
  /// The last sample at or before `t`, where the run starts at or before `t`.
  uint32_t FindLastIndexAtOrBefore(uint64_t t) const {
    return delta == 0 ? count - 1
                      : static_cast<uint32_t>(std::min<uint64_t>((t - time) / delta, count - 1));
  }
  /// How many samples are before `t`, where the run starts before `t`.
  uint32_t CountBefore(uint64_t t) const {
    return delta == 0
               ? count
               : static_cast<uint32_t>(std::min<uint64_t>((t - time - 1) / delta + 1, count));
  }
};
inline bool CompareByTime(const CompactSttsEntry& a, const CompactSttsEntry& b) {
  return a.time <= b.time;
}

/// A run of samples with the same composition offset.
struct CttsEntry {
  uint32_t count = 0;
  uint32_t compositionOffset = 0;
  uint32_t firstSample = 1;

  CttsEntry Get(uint32_t index) const { return {count, compositionOffset, firstSample + index}; }
};

/// The same as it is kept: there are many of them. Where the next one starts tells the count.
struct CompactCttsEntry {
  uint32_t firstSample;
  uint32_t compositionOffset;
};

/// Where one sample lies.
struct StscEntry {
  uint32_t sampleNumber = 0;
  uint32_t chunkNumber = 0;
  uint32_t descriptionIndex = 0;
};

/// A run of chunks with the same number of samples and the same description.
struct ChunkEntry {
  static constexpr uint32_t kOpenEnd = 0xFFFFFFFF;

  uint32_t firstChunk = 1;
  uint32_t chunkCount = kOpenEnd;
  uint32_t samplesPerChunk = 0;
  uint32_t descriptionIndex = 1;
  uint32_t firstSample = 1;
  uint32_t emptyBehind = 0;  ///< As in CompactSttsEntry.

  bool HasSamples() const { return chunkCount != 0 && samplesPerChunk != 0; }
  /// `samplesPerChunk` is not 0 here and below.
  StscEntry Get(uint32_t index) const {
    return {firstSample + index, firstChunk + index / samplesPerChunk, descriptionIndex};
  }
  uint32_t GetChunkIndexFromSampleNumber(uint32_t number) const {
    return (number - firstSample) / samplesPerChunk;
  }
};

/// Orders runs of composition offsets or of chunks.
template <class Run>
bool CompareBySampleNumber(const Run& a, const Run& b) {
  return a.firstSample <= b.firstSample;
}

struct SampleSizeEntry {
  uint32_t size = 0;
};
struct SyncSampleEntry {
  uint32_t sampleNumber = 0;
};
struct ChunkOffsetEntry {
  uint64_t offset = 0;
};

/// Tells every run how many without samples lie behind it, so that they are stepped over at once.
/// Returns the number of runs up to and with the last one that has samples.
template <class Runs>
size_t CountEmptyRuns(Runs& runs) {
  size_t used = 0;
  uint32_t emptyBehind = 0;
  for (size_t i = runs.size(); i-- > 0;) {
    runs[i].emptyBehind = emptyBehind;
    const bool hasSamples = runs[i].HasSamples();
    emptyBehind = hasSamples ? 0 : emptyBehind + 1;
    used = hasSamples ? std::max(used, i + 1) : used;
  }
  return used;
}

/// The last record of [first, end) that `compare` puts at or before `wanted`; `end` when there is
/// none.
template <class Iterator, class Record, class Compare>
Iterator FindLastAtOrBefore(Iterator first, Iterator end, const Record& wanted, Compare compare) {
  const Iterator after = std::partition_point(
      first, end, [&](const Record& record) { return compare(record, wanted); });
  return after == first ? end : after - 1;
}

}  // namespace qiro::k7m::impl
