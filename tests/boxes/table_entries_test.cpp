#include "boxes/table_entries.h"

#include <gtest/gtest.h>

#include <vector>

namespace qiro::k7m::impl {
namespace {

TEST(CompactSttsEntry, AddMovesOnToTheNextRun) {
  CompactSttsEntry run;
  EXPECT_EQ(run.time, 0U);
  EXPECT_EQ(run.firstSample, 1U);
  run.Add(3, 10);
  EXPECT_EQ(run.time, 0U);
  EXPECT_EQ(run.firstSample, 1U);
  EXPECT_EQ(run.count, 3U);
  EXPECT_EQ(run.delta, 10U);
  run.Add(2, 5);
  EXPECT_EQ(run.time, 30U);
  EXPECT_EQ(run.firstSample, 4U);
  run.Add(1, 0xFFFFFFFF);
  EXPECT_EQ(run.time, 40U);
  EXPECT_EQ(run.firstSample, 6U);
}

TEST(CompactSttsEntry, TimesAreKeptIn64Bits) {
  CompactSttsEntry run;
  run.Add(0xFFFFFFFF, 0xFFFFFFFF);
  EXPECT_EQ(run.GetSampleTime(0xFFFFFFFE), uint64_t{0xFFFFFFFF} * 0xFFFFFFFE);
  run.Add(1, 1);
  EXPECT_EQ(run.time, uint64_t{0xFFFFFFFF} * 0xFFFFFFFF);
  EXPECT_EQ(run.firstSample, 0U);  // Wraps.
}

CompactSttsEntry TimeRun(uint64_t time, uint32_t firstSample, uint32_t count, uint32_t delta) {
  CompactSttsEntry run;
  run.time = time;
  run.firstSample = firstSample;
  run.count = count;
  run.delta = delta;
  return run;
}

TEST(CompactSttsEntry, SamplesAreCountedFromZeroWithinTheRun) {
  const CompactSttsEntry run = TimeRun(100, 7, 4, 10);
  EXPECT_EQ(run.GetSampleTime(0), 100U);
  EXPECT_EQ(run.GetSampleTime(3), 130U);
  EXPECT_EQ(run.GetSampleNumber(3), 10U);
  EXPECT_EQ(run.Get(2).decodeTime, 120U);
  EXPECT_EQ(run.Get(2).sampleNumber, 9U);
  EXPECT_EQ(run.First().sampleNumber, 7U);
  EXPECT_EQ(run.Last().decodeTime, 130U);
  EXPECT_EQ(run.Last().sampleNumber, 10U);
  EXPECT_EQ(run.LastSampleTime(), 130U);
}

TEST(CompactSttsEntry, FindIndexRoundsUpAndEndsAtTheLastSample) {
  const CompactSttsEntry run = TimeRun(100, 1, 4, 10);
  EXPECT_EQ(run.FindIndexByDecodeTime(0), 0U);
  EXPECT_EQ(run.FindIndexByDecodeTime(100), 0U);
  EXPECT_EQ(run.FindIndexByDecodeTime(101), 1U);
  EXPECT_EQ(run.FindIndexByDecodeTime(110), 1U);
  EXPECT_EQ(run.FindIndexByDecodeTime(111), 2U);
  EXPECT_EQ(run.FindIndexByDecodeTime(129), 3U);
  EXPECT_EQ(run.FindIndexByDecodeTime(130), 3U);
  EXPECT_EQ(run.FindIndexByDecodeTime(131), 3U);
  EXPECT_EQ(run.FindIndexByDecodeTime(UINT64_MAX), 3U);
}

TEST(CompactSttsEntry, FindIndexInARunOfDeltaZeroIsZero) {
  const CompactSttsEntry run = TimeRun(100, 1, 4, 0);
  EXPECT_EQ(run.FindIndexByDecodeTime(50), 0U);
  EXPECT_EQ(run.FindIndexByDecodeTime(100), 0U);
  EXPECT_EQ(run.FindIndexByDecodeTime(500), 0U);
}

TEST(CompactSttsEntry, AreOrderedByTimeEqualOnesIncluded) {
  EXPECT_TRUE(CompareByTime(TimeRun(1, 1, 1, 1), TimeRun(2, 1, 1, 1)));
  EXPECT_TRUE(CompareByTime(TimeRun(2, 1, 1, 1), TimeRun(2, 9, 9, 9)));
  EXPECT_FALSE(CompareByTime(TimeRun(3, 1, 1, 1), TimeRun(2, 1, 1, 1)));
}

TEST(CttsEntry, GetMovesTheFirstSampleAlong) {
  CttsEntry run;
  run.count = 5;
  run.compositionOffset = 70;
  run.firstSample = 11;
  const CttsEntry moved = run.Get(3);
  EXPECT_EQ(moved.count, 5U);
  EXPECT_EQ(moved.compositionOffset, 70U);
  EXPECT_EQ(moved.firstSample, 14U);
  EXPECT_TRUE(CompareBySampleNumber(run, moved));
  EXPECT_TRUE(CompareBySampleNumber(run, run));
  EXPECT_FALSE(CompareBySampleNumber(moved, run));
}

TEST(ChunkEntry, GetCountsChunksFromTheRunsFirstOne) {
  ChunkEntry run;
  run.firstChunk = 5;
  run.chunkCount = 10;
  run.samplesPerChunk = 3;
  run.descriptionIndex = 2;
  run.firstSample = 20;
  EXPECT_EQ(run.Get(0).sampleNumber, 20U);
  EXPECT_EQ(run.Get(0).chunkNumber, 5U);
  EXPECT_EQ(run.Get(0).descriptionIndex, 2U);
  EXPECT_EQ(run.Get(2).chunkNumber, 5U);
  EXPECT_EQ(run.Get(3).chunkNumber, 6U);
  EXPECT_EQ(run.Get(7).sampleNumber, 27U);
  EXPECT_EQ(run.Get(7).chunkNumber, 7U);
  EXPECT_EQ(run.GetChunkIndexFromSampleNumber(20), 0U);
  EXPECT_EQ(run.GetChunkIndexFromSampleNumber(22), 0U);
  EXPECT_EQ(run.GetChunkIndexFromSampleNumber(23), 1U);
  EXPECT_TRUE(CompareBySampleNumber(run, run));
}

TEST(FindLastAtOrBefore, FindsTheLastRecordWhoseKeyIsAtMostTheWantedOne) {
  std::vector<CompactSttsEntry> runs;
  for (const uint64_t time : std::vector<uint64_t>{10, 20, 20, 30}) {
    runs.push_back(TimeRun(time, static_cast<uint32_t>(runs.size() + 1), 1, 1));
  }
  const auto find = [&](uint64_t time) {
    const auto found =
        FindLastAtOrBefore(runs.begin(), runs.end(), TimeRun(time, 0, 0, 0), CompareByTime);
    return found == runs.end() ? -1 : static_cast<int>(found - runs.begin());
  };
  EXPECT_EQ(find(9), -1);
  EXPECT_EQ(find(10), 0);
  EXPECT_EQ(find(19), 0);
  EXPECT_EQ(find(20), 2);
  EXPECT_EQ(find(29), 2);
  EXPECT_EQ(find(30), 3);
  EXPECT_EQ(find(UINT64_MAX), 3);
}

}  // namespace
}  // namespace qiro::k7m::impl
