#include <gtest/gtest.h>

#include "support/opened_reader.h"
#include "tables.h"

namespace k7mtest {
namespace {

struct Step {
  uint64_t time;
  uint32_t flags = 0;
};

/// A finished file with one track; a step with flag 0xFFFFFFFF is a flush.
constexpr uint32_t kFlush = 0xFFFFFFFF;
Bytes FileOf(const std::vector<Step>& steps, const NewTrack& track = {},
             uint32_t movieScale = 1000) {
  OpenedWriter writer(movieScale);
  QiroK7MTrack* added = writer.AddDescribedTrack(track);
  for (const Step& step : steps) {
    if (step.flags == kFlush) {
      writer.Flush();
    } else {
      writer.Add(added, step.time, step.flags);
    }
  }
  return writer.Finish();
}

TEST(Edits, ATrackFromZeroHasOne) {
  const Bytes file = FileOf({{0}, {100}, {200}});
  ExpectEdits(file, {{201, 0}});
  EXPECT_EQ(DurationsOf(file), (Durations{201, 201}));
  EXPECT_EQ(MovieDuration(file), 201u);
}

TEST(Edits, ALateTrackHasAnEmptyMediaEntryBeforeItsGap) {
  const Bytes file = FileOf({{1000}, {1100}});
  ExpectEdits(file, {{0, 0}, {1000, -1}, {101, 0}});
  ExpectStts(file, {{1, 100}, {1, 1}});
  EXPECT_EQ(DurationsOf(file), (Durations{101, 1101}));
}

TEST(Edits, TheGapOfALateTrackIsInMovieScale) {
  const Bytes file = FileOf({{90000}, {90900}}, {.timeScale = 90000}, 600);
  ExpectEdits(file, {{0, 0}, {600, -1}, {7, 0}});
  EXPECT_EQ(DurationsOf(file), (Durations{900 + 150, 607}));
}

TEST(Edits, AGapSampleSplitsTheList) {
  const Bytes file = FileOf({{0}, {10}, {20, kGap}, {50}, {60}});
  ExpectEdits(file, {{20, 0}, {30, -1}, {11, 20}});
  ExpectStts(file, {{3, 10}, {1, 1}});
  EXPECT_EQ(DurationsOf(file), (Durations{31, 61}));
}

TEST(Edits, FurtherGapSamplesInsideAGapChangeNothing) {
  EXPECT_EQ(FileOf({{0}, {20, kGap}, {30, kGap}, {40, kGap}, {50}}),
            FileOf({{0}, {20, kGap}, {50}}));
}

TEST(Edits, AGapSampleInsideAGapMayEvenComeAgainAtItsTime) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 20, kGap);
  writer.Add(track, 20, kGap);
  writer.Add(track, 30, kGap);
  writer.Add(track, 25, kGap);  // The last decode time is still 20.
  EXPECT_EQ(writer.TryAdd(track, {.time = 19, .flags = kGap}), 1280u);
}

TEST(Edits, AGapAtTheStartHasAnEmptyMediaEntryToo) {
  ExpectEdits(FileOf({{0, kGap}, {40}, {50}}), {{0, 0}, {40, -1}, {11, 0}});
}

TEST(Edits, AFirstGapSampleThatIsLateClosesAnEditFromZero) {
  // The late start rule is for media samples; the gap closes the edit in progress at its own time.
  const Bytes file = FileOf({{30, kGap}, {40}, {50}});
  ExpectEdits(file, {{30, 0}, {10, -1}, {11, 30}});
  EXPECT_EQ(DurationsOf(file), (Durations{41, 51}));
}

TEST(Edits, AGapThatIsStillOpenAtTheEndLeavesNoEntry) {
  const Bytes file = FileOf({{0}, {10}, {20, kGap}});
  ExpectEdits(file, {{20, 0}});
  EXPECT_EQ(DurationsOf(file), (Durations{20, 20}));
  ExpectStts(file, {{1, 10}, {1, 1}});
}

TEST(Edits, ThreeGapsNeedSevenEntries) {
  const std::vector<Step> steps = {{0}, {10, kGap}, {20}, {30, kGap}, {40}, {50, kGap}, {60}};
  ExpectEdits(FileOf(steps, {.gapCount = 3}),
              {{10, 0}, {10, -1}, {10, 10}, {10, -1}, {10, 20}, {10, -1}, {1, 30}});
}

TEST(Edits, MoreThanReservedIs16AndMakesTheWriterBad) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.gapCount = 0});
  writer.Add(track, 0);
  writer.Add(track, 10, kGap);
  EXPECT_EQ(writer.TryAdd(track, {.time = 20}), 16u);
  EXPECT_FALSE(writer.IsGood());
}

TEST(Edits, ALateStartNeedsThreeEntries) {
  {
    OpenedWriter writer;
    QiroK7MTrack* track = writer.AddDescribedTrack({.gapCount = 0});
    EXPECT_EQ(writer.TryAdd(track, {.time = 5}), 16u);
    EXPECT_FALSE(writer.IsGood());
  }
  ExpectEdits(FileOf({{5}}, {.gapCount = 1}), {{0, 0}, {5, -1}, {1, 0}});
}

TEST(Edits, AFlushThatNeedsAnEntryTooManyIs16) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.gapCount = 1});
  writer.Add(track, 5);
  writer.Add(track, 10, kGap);
  EXPECT_EQ(QiroK7MWriterFlush(writer.Handle()), 0u);  // In a gap: no entry is added.
  EXPECT_EQ(writer.TryAdd(track, {.time = 15}), 16u);
  EXPECT_FALSE(writer.IsGood());
}

TEST(Edits, AFlushDoesNotChangeTheFinalList) {
  const std::vector<Step> plain = {{7}, {10}, {20, kGap}, {50}, {60}, {70, kGap}, {90}, {95}};
  const Bytes expected = FindBox(FileOf(plain), "moov/trak/edts");
  for (size_t place = 0; place <= plain.size(); ++place) {
    std::vector<Step> flushed = plain;
    flushed.insert(flushed.begin() + static_cast<std::ptrdiff_t>(place), {0, kFlush});
    const Bytes file = FileOf(flushed);
    EXPECT_EQ(FindBox(file, "moov/trak/edts"), expected) << place;
    EXPECT_EQ(DurationsOf(file), DurationsOf(FileOf(plain))) << place;
  }
}

TEST(Edits, AFlushInsideAGapLeavesTheEntryBeforeIt) {
  const std::vector<Step> steps = {{0}, {10}, {0, kFlush}, {20, kGap}, {0, kFlush}};
  ExpectEdits(FileOf(steps), {{20, 0}});
  std::vector<Step> more = steps;
  more.insert(more.end(), {{50}, {60}});
  ExpectEdits(FileOf(more), {{20, 0}, {30, -1}, {11, 20}});
}

TEST(Edits, ATrackWithoutSamplesGetsAnEntryOfItsDefaultDuration) {
  // Its last decode time is "none yet", -1, and its last duration 1: the end is at 0.
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.AddDescribedTrack();
  writer.Add(track, 0);
  const Bytes file = writer.Finish();
  ExpectEdits(file, {{0, 0}}, 2);
  EXPECT_EQ(DurationsOf(file, 2), (Durations{0, 0}));
}

TEST(Edits, AnEntryOfATrackWithoutSamplesDoesNotGetInTheWayOfALateStart) {
  OpenedWriter writer;
  QiroK7MTrack* first = writer.AddDescribedTrack();
  QiroK7MTrack* late = writer.AddDescribedTrack();
  writer.Add(first, 0);
  writer.Flush();
  writer.Flush();
  writer.Add(late, 500);
  writer.Add(late, 510);
  ExpectEdits(writer.Finish(), {{0, 0}, {500, -1}, {11, 0}}, 2);
}

TEST(Edits, NumbersThatDoNotFitAreWrittenAsTheLargestThatDo) {
  // One step is at most 0xFFFFFFFF, so two of them pass the 32 bits of a duration.
  const uint64_t step = 0xFFFFFFFF;
  const Bytes file = FileOf({{0}, {step}, {2 * step}, {2 * step + 10, kGap}, {2 * step + 20}});
  ExpectEdits(file, {{0xFFFFFFFF, 0}, {10, -1}, {1, 0x7FFFFFFF}});
  EXPECT_EQ(DurationsOf(file).track, 2 * step + 21);
}

TEST(Durations, TheMovieLastsAsLongAsItsLongestTrack) {
  OpenedWriter writer(600);
  QiroK7MTrack* a = writer.AddDescribedTrack({.timeScale = 1000});
  QiroK7MTrack* b = writer.AddDescribedTrack({.timeScale = 48000});
  writer.Add(a, 0);
  writer.Add(a, 1000);
  writer.Add(b, 0);
  writer.Add(b, 24000);
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationsOf(file, 1), (Durations{1002, 601}));
  EXPECT_EQ(DurationsOf(file, 2), (Durations{24080, 301}));
  EXPECT_EQ(MovieDuration(file), 601u);
}

TEST(Durations, AreThoseGivenUntilMediaIsFlushed) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack({.duration = 777});
  writer.Flush();
  EXPECT_EQ(DurationsOf(writer.File()), (Durations{777, 777}));
  writer.Add(track, 0);
  EXPECT_EQ(DurationsOf(writer.File()), (Durations{777, 777}));
  writer.Flush();
  EXPECT_EQ(DurationsOf(writer.File()), (Durations{1, 1}));
}

TEST(Durations, TheDefaultDurationHoldsForTheSampleBehindAGapToo) {
  const Bytes file = FileOf({{0}, {100, kGap}, {200}}, {.timeScale = 10000});
  EXPECT_EQ(DurationsOf(file), (Durations{110, 21}));  // 210 rounds to 21 movie ticks.
  ExpectEdits(file, {{10, 0}, {10, -1}, {1, 100}});
}

TEST(Playback, SamplesBehindGapsComeAtTheirTimes) {
  const Bytes file = FileOf({{1000}, {1100}, {1200, kGap}, {1500, kKey}, {1600}});
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  const auto samples = AllSamples(reader);
  EXPECT_EQ(TimeStamps(samples), (std::vector<uint64_t>{0, 1000, 1100, 1200, 1500, 1600}));
  EXPECT_EQ(Flags(samples), (std::vector<uint32_t>{kGap, 0, 0, kGap, kKey, 0}));
}

}  // namespace
}  // namespace k7mtest
