// 'stts' and 'ctts': reading and look-ups.
#include <gtest/gtest.h>

#include "boxes/ctts_box.h"
#include "boxes/stts_box.h"
#include "internals/document.h"
#include "internals/dump.h"
#include "support/counting_allocator.h"

namespace k7mtest {
namespace {

using Runs = std::vector<Stts::Run>;
/// (decode time, sample number) of each sample.
using Samples = std::vector<std::pair<uint64_t, uint32_t>>;

Samples Walk(impl::SttsIterator it) {
  Samples samples;
  for (; it.HasMoreEntries() && samples.size() < 1000; ++it) {
    samples.emplace_back(it->decodeTime, it->sampleNumber);
  }
  return samples;
}

Samples Find(const Runs& runs, uint64_t begin, uint64_t end) {
  Document document(FullBox("stts", 0, 0, Stts{.runs = runs}));
  return Walk(document.Next<impl::SttsBox>().FindByDecodeTime(begin, end));
}

Samples All(const Runs& runs) {
  Document document(FullBox("stts", 0, 0, Stts{.runs = runs}));
  return Walk(document.Next<impl::SttsBox>().AllSamples());
}

const Runs kTwoRuns = {{3, 10}, {2, 25}};  // 0 10 20 | 30 55

TEST(Stts, ItsCountIsReadWithoutALookAtItsEnd) {
  // The box ends before its count; the count is taken from what follows.
  Document document(FullBox("stts", 0, 0) + Bytes().U32(0).U32(0));
  EXPECT_EQ(Dump(document.Next<impl::SttsBox>()), "entries=[0] ;");
  EXPECT_EQ(ParseError(FullBox("stts", 0, 0)), 5U);
  EXPECT_EQ(ParseError(FullBox("stts", 0, 0) + Box("free")), 27U);
}

TEST(Stts, EntriesMustLieInTheBox) {
  const Bytes whole = FullBox("stts", 0, 0, Stts{.runs = kTwoRuns});
  for (size_t size = 16; size < whole.Size(); ++size) {
    EXPECT_EQ(ParseError(Cut(whole, size).Patch(0, size) + Box("free", Pattern(50))), 27U) << size;
  }
  for (size_t size = 8; size < 12; ++size) {
    EXPECT_EQ(ParseError(Cut(whole, size).Patch(0, size) + Box("free", Pattern(50))), 28U) << size;
  }
}

TEST(Stts, ACountAbove100000000IsError9) {
  EXPECT_EQ(ParseError(FullBox("stts", 0, 0, Stts{.runs = kTwoRuns, .count = 100000001})), 9U);
  EXPECT_EQ(ParseError(FullBox("stts", 0, 0, Stts{.runs = kTwoRuns, .count = 100000000})), 27U);
}

TEST(Stts, FewerEntriesThanTheBoxHoldsAreAcceptedSilently) {
  Document document(FullBox("stts", 0, 0, Stts{.runs = kTwoRuns, .count = 1}));
  EXPECT_EQ(Dump(document.Next<impl::SttsBox>()),
            "entries=[1] { sample_count=3 sample_delta=10 } ;");
  EXPECT_TRUE(document.Warnings().empty());
}

TEST(Stts, ItsTableDoesNotLiveInTheClientsMemory) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  Document document(FullBox("stts", 0, 0, Stts{.runs = Runs(5000, {1, 1})}), &record);
  document.Next();
  EXPECT_LT(counter.PeakBytes(), 5000U);
}

TEST(Stts, AllSamplesStandInDecodeOrder) {
  EXPECT_EQ(All(kTwoRuns), (Samples{{0, 1}, {10, 2}, {20, 3}, {30, 4}, {55, 5}}));
  EXPECT_EQ(All({}), Samples{});
  EXPECT_EQ(All({{0, 5}, {0, 0}}), Samples{});
}

TEST(Stts, RunsOfCountZeroAreSteppedOver) {
  EXPECT_EQ(All({{0, 7}, {1, 10}, {0, 99}, {0, 3}, {2, 5}, {0, 1}}),
            (Samples{{0, 1}, {10, 2}, {15, 3}}));
  EXPECT_EQ(Find({{0, 7}, {1, 10}, {0, 99}, {2, 5}, {0, 1}}, 0, 1000),
            (Samples{{0, 1}, {10, 2}, {15, 3}}));
  EXPECT_EQ(Find({{1, 10}, {0, 99}, {2, 5}, {0, 1}}, 10, 10), (Samples{{10, 2}}));
}

TEST(Stts, ARangeIncludesBothEnds) {
  EXPECT_EQ(Find(kTwoRuns, 0, 55), All(kTwoRuns));
  EXPECT_EQ(Find(kTwoRuns, 10, 30), (Samples{{10, 2}, {20, 3}, {30, 4}}));
  EXPECT_EQ(Find(kTwoRuns, 10, 29), (Samples{{10, 2}, {20, 3}}));
  EXPECT_EQ(Find(kTwoRuns, 30, 30), (Samples{{30, 4}}));
  EXPECT_EQ(Find(kTwoRuns, 0, UINT64_MAX), All(kTwoRuns));
}

TEST(Stts, ABeginBetweenSamplesStartsAtTheNextOne) {
  EXPECT_EQ(Find(kTwoRuns, 1, 100), (Samples{{10, 2}, {20, 3}, {30, 4}, {55, 5}}));
  EXPECT_EQ(Find(kTwoRuns, 31, 100), (Samples{{55, 5}}));
  EXPECT_EQ(Find(kTwoRuns, 11, 19), Samples{});
}

TEST(Stts, ABeginBehindTheLastSampleOfARunStartsWithThatSample) {
  EXPECT_EQ(Find(kTwoRuns, 21, 100), (Samples{{20, 3}, {30, 4}, {55, 5}}));
  EXPECT_EQ(Find(kTwoRuns, 29, 100), (Samples{{20, 3}, {30, 4}, {55, 5}}));
  EXPECT_EQ(Find(kTwoRuns, 25, 26), (Samples{{20, 3}}));
}

TEST(Stts, ABeginBehindTheLastSampleOfTheLastRunFindsNothing) {
  EXPECT_EQ(Find(kTwoRuns, 55, 100), (Samples{{55, 5}}));
  EXPECT_EQ(Find(kTwoRuns, 56, 100), Samples{});
  EXPECT_EQ(Find(kTwoRuns, UINT64_MAX, UINT64_MAX), Samples{});
}

TEST(Stts, AnEmptyTableFindsNothing) { EXPECT_EQ(Find({}, 0, UINT64_MAX), Samples{}); }

TEST(Stts, AnEndBeforeTheBeginFindsNothing) { EXPECT_EQ(Find(kTwoRuns, 30, 10), Samples{}); }

TEST(Stts, RunsOfDeltaZeroAtTheBeginAreSteppedOver) {
  const Runs runs = {{2, 0}, {2, 10}};  // 0 0 | 0 10
  EXPECT_EQ(Find(runs, 0, 100), (Samples{{0, 3}, {10, 4}}));
  EXPECT_EQ(All(runs), (Samples{{0, 1}, {0, 2}, {0, 3}, {10, 4}}));
}

TEST(Stts, SteppingOverRunsOfDeltaZeroNeverPassesTheLastRun) {
  EXPECT_EQ(Find({{3, 0}}, 0, 100), (Samples{{0, 1}, {0, 2}, {0, 3}}));
  EXPECT_EQ(Find({{2, 10}, {2, 0}}, 20, 20), (Samples{{20, 3}, {20, 4}}));
}

TEST(Stts, WithinARunOfDeltaZeroEverySampleIsAtTheRunsTime) {
  const Runs runs = {{2, 10}, {3, 0}, {1, 5}};  // 0 10 | 20 20 20 | 20
  EXPECT_EQ(Find(runs, 0, 20), All(runs));
  EXPECT_EQ(Find(runs, 0, 19), (Samples{{0, 1}, {10, 2}}));
}

TEST(Stts, ALongRunIsKeptAsARun) {
  Document document(FullBox("stts", 0, 0, Stts{.runs = {{0xFFFFFFFF, 0xFFFFFFFF}}}));
  auto& stts = document.Next<impl::SttsBox>();
  const uint64_t last = uint64_t{0xFFFFFFFE} * 0xFFFFFFFF;
  EXPECT_EQ(Walk(stts.FindByDecodeTime(last, UINT64_MAX)), (Samples{{last, 0xFFFFFFFF}}));
  EXPECT_EQ(Walk(stts.FindByDecodeTime(last + 1, UINT64_MAX)), Samples{});
  auto it = stts.AllSamples();
  EXPECT_EQ(it.GetDuration(), 0xFFFFFFFFU);
}

TEST(Stts, TimesBeyond64BitsWrapWithoutHarm) {
  const Runs runs(5, {0xFFFFFFFF, 0xFFFFFFFF});
  Document document(FullBox("stts", 0, 0, Stts{.runs = runs}));
  auto& stts = document.Next<impl::SttsBox>();
  for (const uint64_t begin : {uint64_t{0}, uint64_t{1} << 32, uint64_t{1} << 63, UINT64_MAX}) {
    for (const uint64_t end : {uint64_t{0}, uint64_t{1} << 40, UINT64_MAX}) {
      EXPECT_LE(Walk(stts.FindByDecodeTime(begin, end)).size(), 1000U);
    }
  }
}

/// The plain meaning of a look-up, for runs of which none has delta 0 or count 0.
Samples Model(const Runs& runs, uint64_t begin, uint64_t end) {
  Samples all;
  std::vector<size_t> runOf;
  uint64_t time = 0;
  for (size_t r = 0; r < runs.size(); ++r) {
    for (uint32_t i = 0; i < runs[r].count; ++i, time += runs[r].delta) {
      all.emplace_back(time, static_cast<uint32_t>(all.size() + 1));
      runOf.push_back(r);
    }
  }
  size_t first = 0;
  while (first < all.size() && all[first].first < begin) {
    ++first;
  }
  if (first == all.size() || end < begin) {
    return {};
  }
  // Between two runs the look-up starts with the last sample of the earlier one.
  if (first > 0 && all[first].first != begin && runOf[first] != runOf[first - 1]) {
    --first;
  }
  Samples found;
  for (; first < all.size() && all[first].first <= end; ++first) {
    found.push_back(all[first]);
  }
  return found;
}

TEST(Stts, EveryRangeOverThreeRunsIsTheModels) {
  const Runs runs = {{3, 4}, {1, 9}, {4, 3}};
  Document document(FullBox("stts", 0, 0, Stts{.runs = runs}));
  auto& stts = document.Next<impl::SttsBox>();
  for (uint64_t begin = 0; begin < 40; ++begin) {
    for (uint64_t end = 0; end < 40; ++end) {
      ASSERT_EQ(Walk(stts.FindByDecodeTime(begin, end)), Model(runs, begin, end))
          << begin << " to " << end;
    }
  }
}

// 'ctts'
// -------------------------------------------------------------------------------------------

std::vector<uint32_t> OffsetsFrom(const std::vector<Ctts::Run>& runs, uint32_t number) {
  Document document(FullBox("ctts", 0, 0, Ctts{.runs = runs}));
  std::vector<uint32_t> offsets;
  auto it = document.Next<impl::CttsBox>().FindBySampleNumber(number);
  for (; it.HasMoreEntries() && offsets.size() < 1000; ++it) {
    offsets.push_back(*it);
  }
  return offsets;
}

using Offsets = std::vector<uint32_t>;

TEST(Ctts, StartsInsideTheRunThatHoldsTheSample) {
  const std::vector<Ctts::Run> runs = {{2, 5}, {3, 0xFFFFFFF6}, {1, 0}};
  EXPECT_EQ(OffsetsFrom(runs, 1), (Offsets{5, 5, 0xFFFFFFF6, 0xFFFFFFF6, 0xFFFFFFF6, 0}));
  EXPECT_EQ(OffsetsFrom(runs, 2), (Offsets{5, 0xFFFFFFF6, 0xFFFFFFF6, 0xFFFFFFF6, 0}));
  EXPECT_EQ(OffsetsFrom(runs, 5), (Offsets{0xFFFFFFF6, 0}));
  EXPECT_EQ(OffsetsFrom(runs, 6), Offsets{0});
}

TEST(Ctts, HasNothingOutsideItsTable) {
  EXPECT_EQ(OffsetsFrom({{2, 5}}, 3), Offsets{});
  EXPECT_EQ(OffsetsFrom({{2, 5}}, 0xFFFFFFFF), Offsets{});
  EXPECT_EQ(OffsetsFrom({{2, 5}}, 0), Offsets{});
  EXPECT_EQ(OffsetsFrom({}, 1), Offsets{});
}

TEST(Ctts, RunsOfCountZeroAreSteppedOver) {
  const std::vector<Ctts::Run> runs = {{0, 9}, {1, 5}, {0, 8}, {0, 7}, {1, 6}, {0, 4}};
  EXPECT_EQ(OffsetsFrom(runs, 1), (Offsets{5, 6}));
  EXPECT_EQ(OffsetsFrom(runs, 2), Offsets{6});
  EXPECT_EQ(OffsetsFrom(runs, 3), Offsets{});
}

TEST(Ctts, CountsThatWrapPast32BitsAreError30) {
  const auto error = [](const std::vector<Ctts::Run>& runs) {
    return ParseError(FullBox("ctts", 0, 0, Ctts{.runs = runs}));
  };
  EXPECT_EQ(error({{0xFFFFFFFF, 1}}), 30U);
  EXPECT_EQ(error({{0xFFFFFFFE, 1}}), 0U);
  EXPECT_EQ(error({{0xFFFFFFFE, 1}, {1, 1}}), 30U);
  EXPECT_EQ(error({{0x80000000, 1}, {0x80000000, 1}}), 30U);
  EXPECT_EQ(error({{0x80000000, 1}, {0x7FFFFFFE, 1}}), 0U);
}

TEST(Ctts, OfVersionOneIsReadLikeVersionZero) {
  Document document(FullBox("ctts", 1, 0, Ctts{.runs = {{1, 0xFFFFFFFF}}}));
  EXPECT_EQ(*document.Next<impl::CttsBox>().FindBySampleNumber(1), 0xFFFFFFFFU);
}

}  // namespace
}  // namespace k7mtest
