// With which fragment of a track the samples from a time on begin, and how far the file is parsed
// to find it.
#include <gtest/gtest.h>

#include "boxes/fragment_boxes.h"
#include "internals/document.h"
#include "support/fragment_builder.h"

namespace k7mtest {
namespace {

constexpr uint32_t kStartTimes = 2;

Bytes MoovOfTwoTracks() {
  return Box("moov", FullBox("mvhd", 0, 0, Mvhd{}), MinimalTrak(),
             Mvex({{.trackId = 1, .duration = 10}, {.trackId = 2, .duration = 10}}));
}

Bytes TrafOf(uint32_t trackId, uint32_t count) {
  return Traf(0, Tfhd{.trackId = trackId}, DefaultRun(count));
}

Bytes TrafAt(uint64_t time, uint32_t count) {
  return Traf(0, Tfhd{}, FullBox("tfdt", 1, 0, Tfdt{.time = time}), DefaultRun(count));
}

class Lookup : public Document {
 public:
  explicit Lookup(const Bytes& fragments, uint32_t readRules = 0)
      : Document(MoovOfTwoTracks() + fragments, nullptr, readRules) {}

  /// The index among the track's fragments; -1 when there is none.
  int Find(uint64_t time, uint32_t trackId = 1) {
    const auto found = Root().FindFragment(trackId, time);
    return found ? static_cast<int>(*found) : -1;
  }
  size_t ParsedCount() { return Root().Children().size(); }
};

TEST(FindFragment, ParsesNoFurtherThanTheFirstThatCoversTheTime) {
  Lookup file(Moof(TrafOf(1, 2)) + Moof(TrafOf(1, 2)) + Moof(TrafOf(1, 2)));
  EXPECT_EQ(file.Find(0), 0);
  EXPECT_EQ(file.ParsedCount(), 2u);
  EXPECT_EQ(file.Find(21), 1);
  EXPECT_EQ(file.ParsedCount(), 3u);
  EXPECT_EQ(file.Find(41), 2);
}

TEST(FindFragment, BothEndsOfAFragmentBelongToIt) {
  Lookup file(Moof(TrafOf(1, 2)) + Moof(TrafOf(1, 2)));
  EXPECT_EQ(file.Find(20), 0);  // The second one, which starts there, is not parsed yet.
  EXPECT_EQ(file.ParsedCount(), 2u);
  EXPECT_EQ(file.Find(40), 1);
  EXPECT_EQ(file.Find(20), 1);  // Of those that are parsed the last one is taken.
  EXPECT_EQ(file.Find(41), -1);
}

TEST(FindFragment, WithoutOneTheWholeFileIsParsed) {
  Lookup file(Moof(TrafOf(1, 2)) + Box("free") + Moof(TrafOf(2, 2)) + Box("free"));
  EXPECT_EQ(file.Find(21), -1);
  EXPECT_EQ(file.ParsedCount(), 5u);
  EXPECT_EQ(file.Find(0, 3), -1);
}

TEST(FindFragment, LooksAtItsTrackAlone) {
  Lookup file(Moof(TrafOf(2, 1)) + Moof(TrafOf(1, 5)) + Moof(TrafOf(2, 1)) + Moof(TrafOf(2, 3)));
  EXPECT_EQ(file.Find(15, 2), 1);
  EXPECT_EQ(file.Find(45, 2), 2);
  EXPECT_EQ(file.Find(45, 1), 0);
}

TEST(FindFragment, FragmentsWithoutSamplesCoverNoTime) {
  Lookup file(Moof(TrafOf(1, 0)) + Moof(TrafOf(1, 2)) + Moof(TrafOf(1, 0)) + Moof(TrafOf(1, 1)));
  EXPECT_EQ(file.Find(0), 0);
  EXPECT_EQ(file.ParsedCount(), 3u);
  EXPECT_EQ(file.Find(25), 1);
}

TEST(FindFragment, SeveralOfOneMoofAreReadFromTheFirstThatReachesTheTime) {
  Lookup file(Moof(TrafOf(1, 1), TrafOf(1, 1), TrafOf(2, 1), TrafOf(1, 1)) + Moof(TrafOf(1, 1)));
  EXPECT_EQ(file.Find(25), 2);
  EXPECT_EQ(file.Find(20), 1);
  EXPECT_EQ(file.Find(5), 0);
  EXPECT_EQ(file.Find(35), 3);
}

TEST(FindFragment, TimesThatWrapAreSearchedFromTheLast) {
  const Bytes longest = Traf(kTfhdDuration, Tfhd{.duration = 0xFFFFFFFE}, DefaultRun(0xFFFFFFFF));
  // 2^64 - 3 * 2^32 + 2, then a run that passes 2^64, then two ordinary ones.
  const Bytes file = Moof(longest) +
                     Moof(Traf(kTfhdDuration, Tfhd{.duration = 0xFFFFFFFE}, DefaultRun(4))) +
                     Moof(TrafOf(1, 2)) + Moof(TrafOf(1, 2));
  Lookup lookup(file);
  lookup.ParseAll();
  const uint64_t start = lookup.Root().FragmentsOf(1).At(2).startTime;
  EXPECT_LT(start, uint64_t{1} << 40);
  EXPECT_EQ(lookup.Find(start + 15), 2);
  EXPECT_EQ(lookup.Find(start + 25), 3);
  EXPECT_EQ(lookup.Find(start - 1), 0);
  Lookup again(file);  // The same while it is parsed.
  EXPECT_EQ(again.Find(start + 25), 0);
  EXPECT_EQ(again.ParsedCount(), 2u);
}

TEST(FindFragmentByStartTimes, TakesTheFirstThatEndsAfterTheTime) {
  Lookup file(Moof(TrafAt(100, 2)) + Moof(TrafAt(200, 1)) + Moof(TrafAt(300, 1)), kStartTimes);
  EXPECT_EQ(file.Find(0), 0);
  EXPECT_EQ(file.ParsedCount(), 2u);
  EXPECT_EQ(file.Find(119), 0);
  EXPECT_EQ(file.Find(120), 1);
  EXPECT_EQ(file.Find(150), 1);  // In the hole.
  EXPECT_EQ(file.Find(210), 2);
  EXPECT_EQ(file.Find(310), -1);
  EXPECT_EQ(file.Find(119), 0);  // Also when all is parsed.
}

TEST(FindFragmentByStartTimes, FragmentsMayGoBackInTime) {
  Lookup file(Moof(TrafAt(500, 1)) + Moof(TrafAt(0, 1)) + Moof(TrafAt(600, 1)), kStartTimes);
  EXPECT_EQ(file.Find(5), 0);
  EXPECT_EQ(file.Find(510), 2);
}

TEST(FindFragment, AFailedFragmentIsReadAgainWithItsTimes) {
  const Bytes two = Moof(TrafOf(1, 1), TrafOf(1, 1));
  Lookup file(Moof(TrafOf(1, 3)) + two + Moof(TrafOf(1, 1)));
  EXPECT_EQ(file.Find(0), 0);
  const uint64_t before = file.Opened().Memory().Count(Call::kRead);
  ASSERT_EQ(file.Find(35), 1);
  const uint64_t reads = file.Opened().Memory().Count(Call::kRead) - before;
  for (uint64_t n = 1; n <= reads; ++n) {
    Lookup other(Moof(TrafOf(1, 3)) + two + Moof(TrafOf(1, 1)));
    ASSERT_EQ(other.Find(0), 0);
    other.Opened().Memory().FailNth(Call::kRead, n, 4711);
    EXPECT_EQ(ErrorOf([&] { other.Find(35); }), 4711u);
    EXPECT_EQ(other.ParsedCount(), 2u);
    EXPECT_EQ(other.Find(45), 2);
    EXPECT_EQ(other.Root().FragmentsOf(1).At(2).startTime, 40u);
    EXPECT_EQ(other.Find(55), 3);
  }
}

}  // namespace
}  // namespace k7mtest
