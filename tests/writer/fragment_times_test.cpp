#include <gtest/gtest.h>

#include "fragment_expectations.h"
#include "tables.h"

namespace k7mtest {
namespace {

TEST(FragmentTimes, ASampleLastsUntilTheNextOneOfItsTrack) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  for (const uint64_t time : {0u, 10u, 10u, 35u}) writer.Add(video, time);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 10u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 2), 0u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 3), 25u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 4), 1u);
}

TEST(FragmentTimes, TheLastSampleOfARunLastsUntilTheFirstOfTheNextRun) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  writer.Add(video, 0);
  writer.Add(audio, 0);
  writer.Add(video, 77);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 77u);
  EXPECT_EQ(DurationIn(file, 1, 1, 2, 1), 1u);
}

TEST(FragmentTimes, TheLastDurationIsOneMovieTickInAFinerTrack) {
  OpenedWriter writer(FragmentedInfo(1000));
  QiroK7MTrack* video = writer.AddDescribedTrack({.timeScale = 90000});
  writer.Add(video, 0);
  writer.Flush();
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 1), 90u);
}

TEST(FragmentTimes, TheNextSampleInALaterFragmentRewritesItAtOnce) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  writer.Add(video, 0);
  writer.Add(video, 10);
  writer.Flush();
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 2), 1u);
  // A fragment of the other track alone leaves it open.
  writer.Add(audio, 0);
  writer.Flush();
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 2), 1u);
  Bytes before = writer.File();
  writer.Add(video, 0x12345);
  const size_t place = PlaceOf(before, "moof/traf/trun").offset + 20 + 16;
  EXPECT_EQ(writer.File().Slice(0, before.Size()), before.Patch(place, 0x12345 - 10));
  // Only once: the sample behind it belongs to the open fragment.
  writer.Add(video, 0x20000);
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 2), 0x12345u - 10);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 2), 0x12345u - 10);
  EXPECT_EQ(DurationIn(file, 3, 1, 1, 1), 0x20000u - 0x12345);
  EXPECT_EQ(DurationIn(file, 2, 1, 1, 1), 1u);
}

TEST(FragmentTimes, AnEqualTimeInALaterFragmentMakesItZero) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 5);
  writer.Flush();
  writer.Add(video, 5);
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 1), 0u);
}

TEST(FragmentTimes, AGapInsideAFragmentEndsTheSampleAndLeavesTheMedia) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 0);
  writer.Add(video, 10, kGap);
  writer.Add(video, 50);
  writer.Add(video, 60);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 10u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 2), 10u);
  ExpectEdits(file, {{10, 0}, {40, -1}, {11, 10}});
  EXPECT_EQ(DurationsOf(file), (Durations{21, 61}));
  EXPECT_EQ(MovieDuration(file), 61u);
  EXPECT_EQ(NumberIn(file, "moov/mvex/mehd", 12, 8), 61u);
}

TEST(FragmentTimes, AGapAcrossFragmentsIsTakenOutOfTheRewrittenDuration) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 0);
  writer.Add(video, 10, kGap);
  writer.Flush();
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 1), 10u);
  writer.Add(video, 50);
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 1), 10u);
  writer.Flush();
  writer.Add(video, 90, kGap);
  writer.Add(video, 200);
  // The gap starts 40 behind the sample at 50.
  EXPECT_EQ(DurationIn(writer.File(), 2, 1, 1, 1), 40u);
  const Bytes file = writer.Finish();
  ExpectEdits(file, {{10, 0}, {40, -1}, {40, 10}, {110, -1}, {1, 50}});
  EXPECT_EQ(DurationsOf(file), (Durations{51, 201}));
}

TEST(FragmentTimes, AGapAlongsideAnotherTracksFragmentRewritesNothing) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  writer.Add(video, 0);
  writer.Flush();
  writer.Add(video, 30, kGap);
  writer.Add(audio, 0);
  writer.Flush();
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 1), 1u);
  writer.Add(video, 100);
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 1), 30u);
}

TEST(FragmentTimes, AGapNeitherClosesTheMovieBoxNorOpensAFragment) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  const Bytes before = writer.File();
  writer.Add(video, 0, kGap);
  writer.Flush();
  EXPECT_EQ(writer.File(), before);
  writer.AddTrack();
  const Bytes file = writer.Finish();
  EXPECT_EQ(BehindMoov(file), ExpectedMfra(ExpectedTfra(1, {}), ExpectedTfra(2, {})));
}

TEST(FragmentTimes, AGapBehindTheLastFragmentLeavesTheFileAsItIs) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 0);
  writer.Flush();
  const Bytes before = writer.File();
  writer.Add(video, 30, kGap);
  writer.Flush();
  EXPECT_EQ(writer.File(), before);
  EXPECT_EQ(Cut(writer.Finish(), before.Size()), before);
}

TEST(FragmentTimes, ALateTrackStartsAtZeroAndItsIndexKeepsTheGap) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 1000, kKey);
  const Bytes file = writer.Finish();
  ExpectEdits(file, {{0, 0}, {1000, -1}, {1, 0}});
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 1u);
  EXPECT_EQ(NumberIn(file, "mfra/tfra", 24, 8), 1000u);
}

TEST(FragmentTimes, TheDurationOfMehdFollowsEveryFlush) {
  OpenedWriter writer(FragmentedInfo(1000));
  QiroK7MTrack* video = writer.AddDescribedTrack({.timeScale = 500});
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  const auto mehd = [&writer] { return NumberIn(writer.File(), "moov/mvex/mehd", 12, 8); };
  writer.Add(video, 0);
  EXPECT_EQ(mehd(), 0u);
  writer.Flush();
  EXPECT_EQ(mehd(), 2u);
  writer.Add(audio, 41);
  writer.Flush();
  EXPECT_EQ(mehd(), 42u);
  writer.Add(video, 100);
  EXPECT_EQ(mehd(), 42u);
  const Bytes file = writer.Finish();
  EXPECT_EQ(mehd(), 202u);
  EXPECT_EQ(MovieDuration(file), 202u);
  EXPECT_EQ(DurationsOf(file, 1), (Durations{101, 202}));
}

TEST(FragmentTimes, TheLongestStepFitsADuration) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(video, 0);
  EXPECT_EQ(writer.TryAdd(video, {.time = 0x100000000}), 1288u);
  EXPECT_TRUE(writer.IsGood());
  writer.Add(video, 0xFFFFFFFF);
  EXPECT_EQ(writer.TryAdd(video, {.time = 5}), 1280u);
  writer.Flush();
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 1), 0xFFFFFFFFu);
  writer.Add(video, 0x1FFFFFFFE);
  EXPECT_EQ(DurationIn(writer.File(), 1, 1, 1, 2), 0xFFFFFFFFu);
}

TEST(FragmentTimes, TimesAreConvertedToTheScaleOfTheTrack) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack({.timeScale = 90000});
  writer.Add(video, {.time = 0, .timeScale = 1000});
  writer.Add(video, {.time = 40, .compositionOffset = 0xFFFFFFFF, .timeScale = 1000});
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 3600u);
  EXPECT_EQ(NumberIn(file, "moof/traf/trun", 20 + 16 + 12), 0xFFFFFFFFu - 89);
}

TEST(FragmentTimes, AHintTrackWithoutReferencesIsNotStretched) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* hint = writer.AddTrack({.mediaType = "hint"});
  writer.Describe(hint, "vorp", Bytes().Fill(6));
  QiroK7MTrack* video = writer.AddDescribedTrack();
  writer.Add(hint, 0);
  writer.Add(video, 0);
  writer.Add(video, 500);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 1u);
  EXPECT_EQ(DurationsOf(file, 1), (Durations{1, 1}));
}

TEST(FragmentTimes, MoreGapsThanReservedFailTheSampleAndSpoilTheWriter) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack({.gapCount = 0});
  writer.Add(video, 0);
  writer.Add(video, 10, kGap);
  EXPECT_EQ(writer.TryAdd(video, {.time = 20}), 16u);
  EXPECT_FALSE(writer.IsGood());
}

}  // namespace
}  // namespace k7mtest
