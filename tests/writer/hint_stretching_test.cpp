#include <gtest/gtest.h>

#include "api/writer_frame.h"
#include "fragment_expectations.h"
#include "tables.h"

namespace k7mtest {
namespace {

namespace impl = qiro::k7m::impl;

TEST(HintStretching, TheLastSampleGrowsUpToTheEndOfTheServedTrack) {
  impl::TrackTimeline hint(nullptr, 1000, 1000);
  hint.StartAt(0, false);
  hint.AddMedia(0);
  hint.AddMedia(10);
  EXPECT_EQ(hint.End(), 11u);
  EXPECT_FALSE(hint.StretchTo(11));
  EXPECT_FALSE(hint.StretchTo(5));
  EXPECT_EQ(hint.End(), 11u);
  EXPECT_TRUE(hint.StretchTo(500));
  EXPECT_EQ(hint.End(), 500u);
  EXPECT_EQ(hint.MediaDuration(), 500u);
  // The next sample is not moved by that, and lasts its usual time.
  EXPECT_EQ(hint.AddMedia(20), 20u);
  EXPECT_EQ(hint.End(), 21u);
}

/// A hint track of a fragmented document that serves the tracks with these ids.
QiroK7MTrack* AddHintTrack(OpenedWriter& writer, const std::vector<uint32_t>& served,
                           uint32_t timeScale = 1000) {
  const NewTrack hint{.mediaType = "hint", .timeScale = timeScale};
  QiroK7MTrack* track = impl::AsHandle(
      impl::Impl(writer.Handle()).CreateNewTrack(hint.Info(), hint.Entries(), 0, {}, served));
  writer.Describe(track, "vorp", Bytes().Fill(6));
  return track;
}

TEST(HintStretching, AHintTrackEndsWithTheTracksThatItServes) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  QiroK7MTrack* other = writer.AddDescribedTrack({.mediaType = "text"});
  QiroK7MTrack* hint = AddHintTrack(writer, {1, 2});
  writer.Add(hint, 0);
  writer.Add(hint, 20);
  writer.Add(video, 0);
  writer.Add(video, 99);
  writer.Add(audio, 149);
  writer.Add(other, 500);  // Not served.
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 4, 1, 1), 20u);
  EXPECT_EQ(DurationIn(file, 1, 4, 1, 2), 130u);
  ExpectEdits(file, {{150, 0}}, 4);
  EXPECT_EQ(DurationsOf(file, 4), (Durations{150, 150}));
  EXPECT_EQ(DurationsOf(file, 1), (Durations{100, 100}));
  EXPECT_EQ(MovieDuration(file), 501u);
}

TEST(HintStretching, TheMovieGrowsWithTheHintTrack) {
  // 5 ticks of the served track are 2 of the hint track, which are 6 of the movie's.
  OpenedWriter writer(FragmentedInfo(6));
  QiroK7MTrack* video = writer.AddDescribedTrack({.timeScale = 5});
  QiroK7MTrack* hint = AddHintTrack(writer, {1}, 2);
  writer.Add(hint, 0);
  writer.Add(video, 0);
  writer.Add(video, 3);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationsOf(file, 1), (Durations{4, 5}));
  EXPECT_EQ(DurationIn(file, 1, 2, 1, 1), 2u);
  EXPECT_EQ(DurationsOf(file, 2), (Durations{2, 6}));
  EXPECT_EQ(MovieDuration(file), 6u);
  EXPECT_EQ(NumberIn(file, "moov/mvex/mehd", 12, 8), 6u);
}

TEST(HintStretching, ALaterEndOfTheHintTrackStays) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* hint = AddHintTrack(writer, {1});
  writer.Add(video, 0);
  writer.Add(hint, 40);
  writer.Add(hint, 50);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 2, 1, 2), 1u);
  EXPECT_EQ(DurationsOf(file, 2), (Durations{11, 51}));
}

TEST(HintStretching, HappensInEveryFragmentAndItsNextSampleTakesOver) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* hint = AddHintTrack(writer, {1});
  writer.Add(hint, 0);
  writer.Add(video, 0);
  writer.Add(video, 60);
  writer.Flush();
  EXPECT_EQ(DurationIn(writer.File(), 1, 2, 1, 1), 61u);
  writer.Add(hint, 50);
  EXPECT_EQ(DurationIn(writer.File(), 1, 2, 1, 1), 50u);
  writer.Add(video, 80);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 2, 2, 1, 1), 31u);
  ExpectEdits(file, {{81, 0}}, 2);
}

TEST(HintStretching, AHintTrackWithoutSamplesGrowsToo) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  AddHintTrack(writer, {1});
  writer.Add(video, 0);
  writer.Add(video, 30);
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesIn(file, "moof"), (std::vector<std::string>{"mfhd", "traf"}));
  EXPECT_EQ(DurationsOf(file, 2), (Durations{31, 31}));
}

}  // namespace
}  // namespace k7mtest
