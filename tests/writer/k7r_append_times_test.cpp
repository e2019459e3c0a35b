// The timelines of a file that is continued: edit lists, gaps, durations.
#include <gtest/gtest.h>

#include "k7r_recording.h"

namespace k7mtest {
namespace {

struct EditInFile {
  uint64_t duration;
  int64_t mediaTime;
  bool operator==(const EditInFile&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const EditInFile& edit) {
    return out << '{' << edit.duration << ", " << edit.mediaTime << '}';
  }
};
using Edits = std::vector<EditInFile>;

Edits EditsIn(const Bytes& file, size_t track) {
  const std::string elst = "moov/trak#" + std::to_string(track) + "/edts/elst";
  Edits edits;
  const uint64_t count = NumberIn(file, elst, 12);
  for (size_t i = 0; i < count; ++i) {
    edits.push_back({NumberIn(file, elst, 16 + 12 * i),
                     static_cast<int32_t>(NumberIn(file, elst, 20 + 12 * i))});
  }
  return edits;
}
uint64_t TrackDuration(const Bytes& file, size_t track) {
  return NumberIn(file, "moov/trak#" + std::to_string(track) + "/tkhd", 36, 8);
}
uint64_t MediaDuration(const Bytes& file, size_t track) {
  return NumberIn(file, "moov/trak#" + std::to_string(track) + "/mdia/mdhd", 32, 8);
}
uint64_t MovieDuration(const Bytes& file) { return NumberIn(file, "moov/mvhd", 32, 8); }

/// The times of a track's samples and gaps with the edit list applied.
std::vector<uint64_t> TimesOf(const Bytes& file, size_t track) {
  OpenedReader reader(file);
  EXPECT_EQ(reader.Result(), 0u);
  QiroK7MTrack* wanted = reader.TrackAt(track);
  QiroK7MSampleIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader.Handle(), &wanted, 1, &iterator), 0u);
  std::vector<uint64_t> times;
  for (const ReadSample& sample : Drain(iterator, false)) {
    if ((sample.info.flags & kQiroK7MSampleFlagKindMask) != kGap) {
      times.push_back(sample.info.timeStamp);
    }
  }
  return times;
}

/// Adds samples of a fragment of its own each time.
void AddAt(OpenedK7RWriter& writer, QiroK7MTrack* track, const std::vector<uint64_t>& times) {
  writer.StartFragment();
  for (const uint64_t time : times) writer.Add(track, time, kKey);
}

/// A file with a video track; its samples as given.
Bytes FileWith(const std::vector<uint64_t>& times, uint32_t timeScale = 1000) {
  K7RSetup setup(0, {.timeScale = timeScale, .gapCount = 10});
  AddAt(setup.writer, setup.video, times);
  return setup.writer.Finish();
}

TEST(K7RAppendTimes, ASampleAtTheEndContinuesTheLastEdit) {
  OpenedK7RWriter writer(FileWith({0, 40, 80}));  // The last one lasts 1.
  AddAt(writer, writer.DescribedTracks()[0], {81, 120});
  const Bytes file = writer.Finish();
  EXPECT_EQ(EditsIn(file, 1), (Edits{{121, 0}}));
  EXPECT_EQ(MediaDuration(file, 1), 121u);
  EXPECT_EQ(MovieDuration(file), 121u);
  EXPECT_EQ(NumberIn(file, "moov/mvex/mehd", 12, 8), 121u);
  EXPECT_EQ(TimesOf(file, 0), (std::vector<uint64_t>{0, 40, 80, 81, 120}));
}

TEST(K7RAppendTimes, ALaterSampleLeavesAGapFromTheEndOn) {
  OpenedK7RWriter writer(FileWith({0, 40, 80}));
  AddAt(writer, writer.DescribedTracks()[0], {200, 240});
  const Bytes file = writer.Finish();
  EXPECT_EQ(EditsIn(file, 1), (Edits{{81, 0}, {119, -1}, {41, 81}}));
  EXPECT_EQ(MediaDuration(file, 1), 122u);
  EXPECT_EQ(MovieDuration(file), 241u);
  EXPECT_EQ(TimesOf(file, 0), (std::vector<uint64_t>{0, 40, 80, 200, 240}));
}

TEST(K7RAppendTimes, AnEarlierSampleIs1280) {
  OpenedK7RWriter writer(FileWith({0, 40, 80}));
  QiroK7MTrack* video = writer.DescribedTracks()[0];
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(video, {.time = 80}), 1280u);
  EXPECT_EQ(writer.TryAdd(video, {.time = 0}), 1280u);
  EXPECT_EQ(writer.TryAdd(video, {.time = 81 + 0x100000000}), 1288u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(writer.TryAdd(video, {.time = 81}), 0u);
}

TEST(K7RAppendTimes, AGapSampleThatComesFirstMakesAGapFromTheEndOn) {
  OpenedK7RWriter writer(FileWith({0, 40}));
  QiroK7MTrack* video = writer.DescribedTracks()[0];
  writer.StartFragment();
  writer.Add(video, 60, kGap);
  writer.Add(video, 100, kKey);
  const Bytes file = writer.Finish();
  EXPECT_EQ(EditsIn(file, 1), (Edits{{41, 0}, {59, -1}, {1, 41}}));
  EXPECT_EQ(TimesOf(file, 0), (std::vector<uint64_t>{0, 40, 100}));
  EXPECT_EQ(MediaDuration(file, 1), 42u);
}

TEST(K7RAppendTimes, AGapInFrontIsKept) {
  OpenedK7RWriter writer(FileWith({1000, 1040}));
  EXPECT_EQ(EditsIn(writer.File(), 1), (Edits{{0, 0}, {1000, -1}, {41, 0}}));
  AddAt(writer, writer.DescribedTracks()[0], {1041, 1100});
  const Bytes file = writer.Finish();
  EXPECT_EQ(EditsIn(file, 1), (Edits{{0, 0}, {1000, -1}, {101, 0}}));
  EXPECT_EQ(TrackDuration(file, 1), 1101u);
  EXPECT_EQ(TimesOf(file, 0), (std::vector<uint64_t>{1000, 1040, 1041, 1100}));
}

TEST(K7RAppendTimes, EditsBehindTheCutAreDropped) {
  K7RSetup setup(0, {.gapCount = 10});
  AddAt(setup.writer, setup.video, {0, 40});
  AddAt(setup.writer, setup.video, {60});
  setup.writer.Add(setup.video, 100, kGap);
  AddAt(setup.writer, setup.video, {500});
  setup.writer.Add(setup.video, 600, kGap);
  AddAt(setup.writer, setup.video, {900});
  const Bytes whole = setup.writer.Finish();
  ASSERT_EQ(EditsIn(whole, 1), (Edits{{100, 0}, {400, -1}, {100, 100}, {300, -1}, {1, 200}}));
  const auto opened = [&whole](const char* afra) {
    return Bytes(OpenedK7RWriter(whole, PlaceOf(whole, afra).offset).File());
  };
  // The media time at which the cut edit began is the end of what is kept: the edit stays, empty,
  // and so does the gap in front of it.
  EXPECT_EQ(EditsIn(opened("afra#3"), 1),
            (Edits{{100, 0}, {400, -1}, {100, 100}, {300, -1}, {0, 200}}));
  EXPECT_EQ(EditsIn(opened("afra#2"), 1), (Edits{{100, 0}, {400, -1}, {0, 100}}));
  EXPECT_EQ(MovieDuration(opened("afra#2")), 500u);
  // Where the edits begin behind the end, they go.
  EXPECT_EQ(EditsIn(opened("afra#1"), 1), (Edits{{60, 0}}));
  EXPECT_EQ(MovieDuration(opened("afra#1")), 60u);
  EXPECT_EQ(MediaDuration(opened("afra#1"), 1), 60u);
  const Bytes none = OpenedK7RWriter(whole, 0).File();
  EXPECT_EQ(EditsIn(none, 1), (Edits{{0, 0}}));
  EXPECT_EQ(MovieDuration(none), 0u);
}

TEST(K7RAppendTimes, ATrackThatEndsEarlierGetsAnEmptyEditFromItsOldEndOn) {
  OpenedK7RWriter original;
  QiroK7MTrack* video = original.AddDescribedTrack();
  QiroK7MTrack* audio = original.AddDescribedTrack({.mediaType = "soun", .timeScale = 500});
  original.AddDescribedHintTrack({video});
  original.StartFragment();
  original.Add(audio, 0);
  original.Add(audio, 10);
  original.Add(video, 0, kKey);
  original.Add(video, 99, kKey);
  const Bytes before = original.Finish();
  EXPECT_EQ(EditsIn(before, 2), (Edits{{22, 0}}));
  OpenedK7RWriter writer(before);
  const auto tracks = writer.DescribedTracks();
  EXPECT_EQ(EditsIn(writer.File(), 2), (Edits{{22, 0}}));
  writer.StartFragment();
  // The movie lasts 100: nothing of the audio track may come before.
  EXPECT_EQ(writer.TryAdd(tracks[1], {.time = 49}), 1280u);
  writer.Add(tracks[1], 50);
  writer.Add(tracks[1], 60);
  writer.Add(tracks[0], 100, kKey);
  const Bytes file = writer.Finish();
  EXPECT_EQ(EditsIn(file, 1), (Edits{{101, 0}}));
  EXPECT_EQ(EditsIn(file, 2), (Edits{{22, 0}, {78, -1}, {22, 11}}));
  EXPECT_EQ(TimesOf(file, 1), (std::vector<uint64_t>{0, 10, 50, 60}));
  EXPECT_EQ(MediaDuration(file, 2), 22u);
}

TEST(K7RAppendTimes, AFirstSampleOnATrackWithoutAnyStartsBehindTheMovie) {
  OpenedK7RWriter original;
  QiroK7MTrack* video = original.AddDescribedTrack();
  original.AddDescribedTrack({.mediaType = "soun"});
  original.AddDescribedHintTrack({video});
  original.StartFragment();
  original.Add(video, 99, kKey);
  OpenedK7RWriter writer(original.Finish());
  const auto tracks = writer.DescribedTracks();
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(tracks[1], {.time = 99}), 1280u);
  writer.Add(tracks[1], 130);
  const Bytes file = writer.Finish();
  EXPECT_EQ(EditsIn(file, 2), (Edits{{0, 0}, {130, -1}, {1, 0}}));
  EXPECT_EQ(TimesOf(file, 1), (std::vector<uint64_t>{130}));
}

TEST(K7RAppendTimes, RoundingToTheMovieScaleMakesNoGapBetweenSamplesThatFollow) {
  for (const uint32_t timeScale : {90000u, 48000u, 44100u, 999u}) {
    for (uint64_t end = 1; end < 400; end += 7) {
      K7RSetup setup(0, {.timeScale = timeScale, .gapCount = 1});
      setup.writer.StartFragment();
      setup.writer.Add(setup.video, 0, kKey);
      const uint64_t start = setup.writer.StartFragment();
      setup.writer.Add(setup.video, end, kKey);
      OpenedK7RWriter writer(setup.writer.Finish(), start - 1);  // The first one lasts until `end`.
      AddAt(writer, writer.DescribedTracks()[0], {end, end + 1000});
      EXPECT_EQ(EditsIn(writer.Finish(), 1).size(), 1u) << timeScale << ", " << end;
    }
  }
}

TEST(K7RAppendTimes, NewEditsBeginExactlyAtTheirSampleWhateverTheScales) {
  for (const uint32_t timeScale : {90000u, 48000u, 44100u, 999u}) {
    for (uint64_t end = 100; end < 300; end += 7) {
      for (const uint64_t jitter : {0u, 1u, 20u, 5000u}) {
        SCOPED_TRACE(std::to_string(timeScale) + ", " + std::to_string(end) + " + " +
                     std::to_string(jitter));
        K7RSetup setup(0, {.timeScale = timeScale, .gapCount = 10});
        AddAt(setup.writer, setup.video, {0});
        const uint64_t start = setup.writer.StartFragment();
        setup.writer.Add(setup.video, end, kKey);
        OpenedK7RWriter writer(setup.writer.Finish(), start - 1);
        QiroK7MTrack* video = writer.DescribedTracks()[0];
        AddAt(writer, video, {end + jitter, end + jitter + 10});
        writer.Add(video, end + jitter + 20, kGap);
        writer.Add(video, end + jitter + 9999, kKey);
        const Bytes file = writer.Finish();
        OpenedReader reader(file);
        const auto samples = MediaSamples(reader, reader.TrackAt(0), false);
        ASSERT_EQ(samples.size(), 4u);
        EXPECT_EQ(static_cast<uint64_t>(EditsIn(file, 1).back().mediaTime),
                  samples[3].info.timeStamp);
        EXPECT_EQ(samples[1].info.timeStamp, end);
      }
    }
  }
}

TEST(K7RAppendTimes, AnEditListThatIsUsedUpIs16) {
  K7RSetup setup(0, {.gapCount = 0});
  AddAt(setup.writer, setup.video, {0, 40});
  OpenedK7RWriter writer(setup.writer.Finish());
  QiroK7MTrack* video = writer.DescribedTracks()[0];
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(video, {.time = 100}), 16u);
  EXPECT_FALSE(writer.IsGood());
}

TEST(K7RAppendTimes, TheHintTrackGoesOnEndingWithItsTracks) {
  OpenedK7RWriter writer(Record(1).file);
  const auto tracks = writer.DescribedTracks();
  writer.StartFragment();
  writer.Add(tracks[0], 541, kKey);
  writer.Add(tracks[0], 800, kKey);
  const Bytes file = writer.Finish();
  EXPECT_EQ(TrackDuration(file, 1), 301u);
  EXPECT_EQ(TrackDuration(file, 3), 301u);
  EXPECT_EQ(EditsIn(file, 3), (Edits{{301, 0}}));
}

}  // namespace
}  // namespace k7mtest
