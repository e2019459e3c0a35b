#include "boxes/edit_boxes.h"

#include <gtest/gtest.h>

#include "internals/document.h"

namespace k7mtest {
namespace {

using Entries = std::vector<Elst::Entry>;

const Entries kThree = {
    {.segmentDuration = 100, .mediaTime = -1},
    {.segmentDuration = 50, .mediaTime = 7, .rateInteger = 2, .rateFraction = 3},
    {.segmentDuration = 30, .mediaTime = -1}};

TEST(Elst, ComputesTheStartTimes) {
  for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
    Document document(FullBox("elst", version, 0, Elst{.entries = kThree}));
    auto& elst = document.Next<impl::ElstBox>();
    ASSERT_EQ(elst.GetEntries().size(), 3U);
    EXPECT_EQ(elst.GetEntries()[0].startTime, 0U);
    EXPECT_EQ(elst.GetEntries()[1].startTime, 100U);
    EXPECT_EQ(elst.GetEntries()[2].startTime, 150U);
    EXPECT_EQ(elst.GetEntries()[1].segmentDuration, 50U);
    EXPECT_EQ(elst.GetEntries()[1].mediaTime, 7);
    EXPECT_EQ(elst.GetEntries()[1].mediaRateInteger, 2);
    EXPECT_EQ(elst.GetEntries()[1].mediaRateFraction, 3);
    EXPECT_EQ(elst.GetCapacity(), 3U);
  }
}

TEST(Elst, AMediaTimeOfAllOnesInVersionZeroIsAGap) {
  Document document(FullBox("elst", 0, 0, Bytes().U32(1).U32(10).U32(0xFFFFFFFF).U16(1).U16(0)));
  auto& elst = document.Next<impl::ElstBox>();
  EXPECT_EQ(elst.GetEntries()[0].mediaTime, -1);
  EXPECT_TRUE(elst.GetEntries()[0].IsGap());
  EXPECT_EQ(elst.GetGapsCount(), 1U);
}

TEST(Elst, OtherNegativeMediaTimesAreNoGaps) {
  Document document(FullBox("elst", 1, 0, Elst{.entries = {{1, -2}, {1, 0xFFFFFFFF}}}));
  auto& elst = document.Next<impl::ElstBox>();
  EXPECT_EQ(elst.GetEntries()[0].mediaTime, -2);
  EXPECT_EQ(elst.GetEntries()[1].mediaTime, 0xFFFFFFFF);
  EXPECT_EQ(elst.GetGapsCount(), 0U);
}

TEST(Elst, SumsItsGaps) {
  Document document(FullBox("elst", 0, 0, Elst{.entries = kThree}));
  auto& elst = document.Next<impl::ElstBox>();
  EXPECT_EQ(elst.GetGapsDuration(), 130U);
  EXPECT_EQ(elst.GetGapsCount(), 2U);
  EXPECT_EQ(elst.GetLastEntryMediaTime(), -1);
  EXPECT_EQ(elst.GetLastSegStartTime(), 150U);
}

TEST(Elst, MayBeEmpty) {
  Document document(FullBox("elst", 0, 0, Elst{}));
  auto& elst = document.Next<impl::ElstBox>();
  EXPECT_EQ(elst.GetGapsDuration(), 0U);
  EXPECT_EQ(elst.GetGapsCount(), 0U);
  EXPECT_EQ(elst.GetLastEntryMediaTime(), 0);
  EXPECT_EQ(elst.GetLastSegStartTime(), 0U);
  EXPECT_FALSE(elst.GetElstIterator(0, UINT64_MAX).HasMoreEntries());
}

TEST(Elst, SumsBeyond64BitsWrap) {
  Document document(
      FullBox("elst", 1, 0, Elst{.entries = {{UINT64_MAX, 0}, {5, 0}, {7, 0}, {1, 0}}}));
  auto& elst = document.Next<impl::ElstBox>();
  EXPECT_EQ(elst.GetEntries()[2].startTime, 4U);
  for (const uint64_t time : {uint64_t{0}, uint64_t{4}, uint64_t{100}, UINT64_MAX}) {
    int entries = 0;
    for (auto it = elst.GetElstIterator(time, UINT64_MAX); it.HasMoreEntries(); ++it) {
      ++entries;
    }
    EXPECT_LE(entries, 4);
  }
}

uint64_t CapacityOf(const Bytes& bytes, const Codes& warnings = {}) {
  Document document(bytes);
  const uint64_t capacity = document.Next<impl::ElstBox>().GetCapacity();
  EXPECT_EQ(document.Warnings(), warnings);
  return capacity;
}

TEST(Elst, TheCapacityIsTheRoomInTheBox) {
  const Entries one = {{1, 0}};
  EXPECT_EQ(CapacityOf(FullBox("elst", 0, 0, Elst{.entries = one}, Pattern(24))), 3U);
  EXPECT_EQ(CapacityOf(FullBox("elst", 0, 0, Elst{.entries = one}, Pattern(20))), 2U);
  EXPECT_EQ(CapacityOf(FullBox("elst", 1, 0, Elst{.entries = one}, Pattern(40))), 3U);
  EXPECT_EQ(CapacityOf(FullBox("elst", 1, 0, Elst{.entries = one}, Pattern(36))), 2U);
  EXPECT_EQ(CapacityOf(FullBox("elst", 2, 0, Elst{.entries = one}, Pattern(24))), 3U);
  EXPECT_EQ(CapacityOf(FullBox("elst", 0, 0, Elst{})), 0U);
}

TEST(Elst, TheRoomIsCountedFromThePositionInEveryFormOfHeader) {
  const Bytes payload = Bytes().Fill(4).U32(0).Append(Pattern(24));
  EXPECT_EQ(CapacityOf(Box("elst", payload)), 2U);
  EXPECT_EQ(CapacityOf(LargeBox("elst", payload)), 2U);
  EXPECT_EQ(CapacityOf(BoxAsUuid("elst", payload)), 2U);
}

TEST(Elst, OfOddLengthWarnsHasCapacityZeroAndIsStillRead) {
  EXPECT_EQ(CapacityOf(FullBox("elst", 0, 0, Bytes().U32(0).Fill(30)), {3073}), 0U);
  Document document(FullBox("elst", 0, 0, Elst{.entries = kThree}, Pattern(1)));
  auto& elst = document.Next<impl::ElstBox>();
  EXPECT_EQ(elst.GetCapacity(), 0U);
  EXPECT_EQ(elst.GetEntries().size(), 3U);
  EXPECT_EQ(document.Warnings(), Codes{3073});
}

TEST(Elst, OrderIsByStartTimeEqualOnesIncluded) {
  impl::K7MEditListEntry a;
  impl::K7MEditListEntry b;
  a.startTime = 5;
  b.startTime = 5;
  EXPECT_TRUE(CompareElstEntry(a, b));
  b.startTime = 6;
  EXPECT_TRUE(CompareElstEntry(a, b));
  EXPECT_FALSE(CompareElstEntry(b, a));
}

/// Media times of the edits that cover [begin, end]; edit i has media time i.
std::vector<int64_t> Covering(uint64_t begin, uint64_t end) {
  // Start times 0, 100, 100, 150, 200.
  Document document(
      FullBox("elst", 1, 0, Elst{.entries = {{100, 0}, {0, 1}, {50, 2}, {50, 3}, {10, 4}}}));
  auto& elst = document.Next<impl::ElstBox>();
  std::vector<int64_t> times;
  for (auto it = elst.GetElstIterator(begin, end); it.HasMoreEntries(); ++it) {
    times.push_back(it->mediaTime);
  }
  return times;
}

TEST(Elst, TheIteratorCoversARangeOfMovieTime) {
  using Times = std::vector<int64_t>;
  EXPECT_EQ(Covering(0, UINT64_MAX), (Times{0, 1, 2, 3, 4}));
  EXPECT_EQ(Covering(0, 0), Times{0});
  EXPECT_EQ(Covering(0, 99), Times{0});
  EXPECT_EQ(Covering(0, 100), (Times{0, 1, 2}));
  EXPECT_EQ(Covering(99, 149), (Times{0, 1, 2}));
  EXPECT_EQ(Covering(100, 100), Times{2});  // The last one that starts at or before 100.
  EXPECT_EQ(Covering(100, 150), (Times{2, 3}));
  EXPECT_EQ(Covering(160, 170), Times{3});
  EXPECT_EQ(Covering(200, 200), Times{4});
  EXPECT_EQ(Covering(5000, UINT64_MAX), Times{4});
}

TEST(Edts, KeepsItsElst) {
  Document document(Box("edts", Box("free"), FullBox("elst", 0, 0, Elst{})) + Box("edts"));
  EXPECT_NE(document.Next<impl::EdtsBox>().GetElstBox(), nullptr);
  EXPECT_EQ(document.Next<impl::EdtsBox>().GetElstBox(), nullptr);
}

}  // namespace
}  // namespace k7mtest
