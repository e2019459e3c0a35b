// Sample queries: order, selection, ranges, edits.
#include <gtest/gtest.h>

#include "support/movie_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

using Times = std::vector<uint64_t>;

Movie MovieOf(const Track& track) {
  Movie movie;
  movie.tracks.push_back(track);
  return movie;
}

Times TimesOf(const Movie& movie) {
  return TimeStamps(AllSamples(OpenedReader(BuildMovie(movie).bytes)));
}

/// Of a movie with time scale 1000, in milliseconds.
Times TimesBetween(const Movie& movie, uint64_t start, uint64_t end) {
  return TimeStamps(SamplesBetween(OpenedReader(BuildMovie(movie).bytes), 1000, start, 1000, end));
}

Movie ThreeKinds() {
  Movie movie;
  movie.tracks.push_back({.handler = "text", .samples = SomeSamples(2)});
  movie.tracks.push_back({.handler = "soun", .samples = SomeSamples(2)});
  movie.tracks.push_back({.handler = "vide", .samples = SomeSamples(2)});
  movie.tracks.push_back({.handler = "soun", .samples = SomeSamples(2)});
  return movie;
}

std::vector<size_t> TracksOf(const OpenedReader& reader, const std::vector<ReadSample>& samples) {
  const std::vector<QiroK7MTrack*> tracks = reader.Tracks();
  std::vector<size_t> indexes;
  for (const ReadSample& sample : samples) {
    for (size_t t = 0; t < tracks.size(); ++t) {
      if (tracks[t] == sample.track) indexes.push_back(t);
    }
  }
  return indexes;
}

// Order
// ---------------------------------------------------------------------------------------------

TEST(Order, EqualTimesGoToVideoThenSoundThenOthersInFileOrder) {
  OpenedReader reader(BuildMovie(ThreeKinds()).bytes);
  EXPECT_EQ(TracksOf(reader, AllSamples(reader)), (std::vector<size_t>{2, 1, 3, 0, 2, 1, 3, 0}));
}

TEST(Order, ByTracksKeepsTheCallersOrderWithinAKind) {
  OpenedReader reader(BuildMovie(ThreeKinds()).bytes);
  const auto tracks = reader.Tracks();
  QiroK7MTrack* const wanted[] = {tracks[3], tracks[0], tracks[1]};
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader.Handle(), wanted, 3, &iterator), 0u);
  EXPECT_EQ(TracksOf(reader, Drain(iterator)), (std::vector<size_t>{3, 1, 0, 3, 1, 0}));
}

TEST(Order, TimesOfDifferentScalesAreCompared) {
  Movie movie;
  movie.tracks.push_back({.handler = "soun",
                          .timeScale = 1000,
                          .samples = {SampleOf(5, 40), SampleOf(5, 39), SampleOf(5, 1)}});
  movie.tracks.push_back({.handler = "vide",
                          .timeScale = 25,
                          .samples = {SampleOf(5, 1), SampleOf(5, 1), SampleOf(5, 1)}});
  OpenedReader reader(BuildMovie(movie).bytes);
  const auto samples = AllSamples(reader);
  EXPECT_EQ(TracksOf(reader, samples), (std::vector<size_t>{1, 0, 1, 0, 0, 1}));
  EXPECT_EQ(TimeStamps(samples), (Times{0, 0, 1, 40, 79, 2}));
}

TEST(Order, IsByDecodeTimeNotByCompositionTime) {
  Movie movie = ThreeKinds();
  movie.tracks[2].samples[0].compositionOffset = 1000;
  OpenedReader reader(BuildMovie(movie).bytes);
  EXPECT_EQ(TracksOf(reader, AllSamples(reader))[0], 2u);
}

// Selection
// -----------------------------------------------------------------------------------------

TEST(Selection, ByMediaTypes) {
  OpenedReader reader(BuildMovie(ThreeKinds()).bytes);
  const uint32_t types[] = {Code("soun"), Code("text")};
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamplesByMediaTypes(reader.Handle(), types, 2, &iterator), 0u);
  EXPECT_EQ(TracksOf(reader, Drain(iterator)), (std::vector<size_t>{1, 3, 0, 1, 3, 0}));
  ASSERT_EQ(
      QiroK7MReaderGetSamplesByMediaTypes(reader.Handle(), 1000, 5, 1000, 10, types, 1, &iterator),
      0u);
  EXPECT_EQ(TracksOf(reader, Drain(iterator)), (std::vector<size_t>{1, 3}));
}

TEST(Selection, ANullListOfMediaTypesSelectsAllAndAnEmptyOneNone) {
  OpenedReader reader(BuildMovie(ThreeKinds()).bytes);
  const uint32_t type = Code("vide");
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamplesByMediaTypes(reader.Handle(), nullptr, 0, &iterator), 0u);
  EXPECT_EQ(Drain(iterator).size(), 8u);
  ASSERT_EQ(QiroK7MReaderGetAllSamplesByMediaTypes(reader.Handle(), &type, 0, &iterator), 0u);
  EXPECT_FALSE(HasMore(iterator));
  QiroK7MReleaseSampleIterator(iterator);
}

TEST(Selection, ANullListOfTracksSelectsNoneExceptForMediaSamples) {
  OpenedReader reader(BuildMovie(ThreeKinds()).bytes);
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader.Handle(), nullptr, 0, &iterator), 0u);
  EXPECT_EQ(Drain(iterator).size(), 0u);
  ASSERT_EQ(QiroK7MReaderGetSamplesByTracks(reader.Handle(), 1, 0, 1, 9, nullptr, 0, &iterator),
            0u);
  EXPECT_EQ(Drain(iterator).size(), 0u);
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator), 0u);
  EXPECT_EQ(Drain(iterator).size(), 8u);
  QiroK7MTrack* track = reader.TrackAt(0);
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), &track, 0, &iterator), 0u);
  EXPECT_EQ(Drain(iterator).size(), 0u);
}

TEST(Selection, ATimeScaleOf0IsError10) {
  OpenedReader reader(BuildMovie(ThreeKinds()).bytes);
  QiroK7MTrack* track = reader.TrackAt(0);
  const uint32_t type = Code("vide");
  for (const auto& [start, end] : {std::pair{0u, 1u}, std::pair{1u, 0u}, std::pair{0u, 0u}}) {
    auto* const untouched = reinterpret_cast<QiroK7MSampleIterator*>(&reader);
    QiroK7MSampleIterator* iterator = untouched;
    EXPECT_EQ(QiroK7MReaderGetSamples(reader.Handle(), start, 0, end, 9, &iterator),
              kQiroK7MErrorZeroTimeScale);
    EXPECT_EQ(
        QiroK7MReaderGetSamplesByTracks(reader.Handle(), start, 0, end, 9, &track, 1, &iterator),
        kQiroK7MErrorZeroTimeScale);
    EXPECT_EQ(
        QiroK7MReaderGetSamplesByMediaTypes(reader.Handle(), start, 0, end, 9, &type, 1, &iterator),
        kQiroK7MErrorZeroTimeScale);
    EXPECT_EQ(iterator, untouched);
  }
}

TEST(Selection, WithoutASampleInTheRangeIsEmptyAtOnce) {
  OpenedReader reader(BuildMovie(ThreeKinds()).bytes);
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetSamples(reader.Handle(), 1000, 500, 1000, 900, &iterator), 0u);
  EXPECT_FALSE(HasMore(iterator));
  QiroK7MSample* sample = reinterpret_cast<QiroK7MSample*>(&reader);
  EXPECT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), 0u);
  EXPECT_EQ(sample, nullptr);
  QiroK7MReleaseSampleIterator(iterator);
}

// Ranges
// --------------------------------------------------------------------------------------------

TEST(Ranges, IncludeBothEnds) {
  const Movie movie = MovieOf({.samples = SomeSamples(5, 10)});
  EXPECT_EQ(TimesBetween(movie, 10, 30), (Times{10, 20, 30}));
  EXPECT_EQ(TimesBetween(movie, 11, 29), Times{20});
  EXPECT_EQ(TimesBetween(movie, 20, 20), Times{20});
  EXPECT_EQ(TimesBetween(movie, 0, 0), Times{0});
  EXPECT_EQ(TimesBetween(movie, 41, 900), Times{});
  EXPECT_EQ(TimesBetween(movie, 30, 10), Times{}) << "the wrong way round";
}

TEST(Ranges, AnEditCoversItsMediaWithoutItsEnd) {
  Movie movie = MovieOf({.samples = SomeSamples(5, 10), .duration = 20});
  EXPECT_EQ(TimesOf(movie), (Times{0, 10})) << "the duration in the track header is one edit";
  EXPECT_EQ(TimesBetween(movie, 0, 20), (Times{0, 10}));
  movie.tracks[0].edits = {{.segmentDuration = 20, .mediaTime = 10}};
  EXPECT_EQ(TimesOf(movie), (Times{0, 10}));
}

TEST(Ranges, ATrackOfDuration0HasNoSamplesInAnyQuery) {
  const Movie movie = MovieOf({.samples = SomeSamples(3), .duration = 0});
  EXPECT_EQ(TimesOf(movie), Times{});
  EXPECT_EQ(MediaSamples(OpenedReader(BuildMovie(movie).bytes)).size(), 3u);
}

TEST(Ranges, WithoutAnEditListTheDurationCountsAsItIsStored) {
  // 2.5 s in a track that counts seconds. Sent through its scale they would become 2 s, which would
  // end the edit before the range.
  const Movie movie = MovieOf({.timeScale = 1, .samples = SomeSamples(4, 1), .duration = 2500});
  EXPECT_EQ(TimesBetween(movie, 0, 2300), (Times{0, 1, 2}));
  EXPECT_EQ(InfoOf(OpenedReader(BuildMovie(movie).bytes).TrackAt(0)).duration, 2u);
}

TEST(Ranges, BehindTheLastSampleOfARunTheLastSampleIsDelivered) {
  Movie movie = MovieOf({.samples = SomeSamples(4, 10)});
  movie.tracks[0].samples[1].delta = 100;  // 0, 10, 110, 120
  movie.tracks[0].replace["stts"] =
      FullBox("stts", 0, 0, Stts{.runs = {{1, 10}, {1, 100}, {2, 10}}});
  EXPECT_EQ(TimesBetween(movie, 50, 110), (Times{10, 110}));
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{4, 10}}});
  EXPECT_EQ(TimesBetween(movie, 15, 20), Times{20}) << "within a run it is not";
}

TEST(Ranges, ANeverBeforeTheMediaTimeOfAnEdit) {
  Movie movie = MovieOf({.samples = SomeSamples(4, 10)});
  movie.tracks[0].replace["stts"] =
      FullBox("stts", 0, 0, Stts{.runs = {{1, 10}, {1, 100}, {2, 10}}});
  movie.tracks[0].edits = {{.segmentDuration = 200, .mediaTime = 50}};
  EXPECT_EQ(TimesOf(movie), (Times{60, 70})) << "the samples at 110 and 120, not the one at 10";
}

TEST(Ranges, RunsOfDelta0) {
  Movie movie = MovieOf({.samples = SomeSamples(6, 10), .duration = 500});
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{2, 10}, {4, 0}}});
  EXPECT_EQ(TimesOf(movie), (Times{0, 10, 20, 20, 20, 20})) << "at the end they are all delivered";
  EXPECT_EQ(TimesBetween(movie, 20, 20), (Times{20, 20, 20, 20}));
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{3, 0}, {3, 10}}});
  EXPECT_EQ(TimesOf(movie), (Times{0, 10, 20})) << "at the start they are stepped over";
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{1, 10}, {2, 0}, {3, 10}}});
  EXPECT_EQ(TimesOf(movie), (Times{0, 10, 10, 10, 20, 30}));
  EXPECT_EQ(TimesBetween(movie, 10, 900), (Times{10, 20, 30}));
}

TEST(Ranges, EmptyRunsHoldNothing) {
  Movie movie = MovieOf({.samples = SomeSamples(4, 10)});
  movie.tracks[0].replace["stts"] =
      FullBox("stts", 0, 0, Stts{.runs = {{0, 7}, {2, 10}, {0, 9}, {2, 10}, {0, 3}}});
  EXPECT_EQ(TimesOf(movie), (Times{0, 10, 20, 30}));
  EXPECT_EQ(TimesBetween(movie, 20, 20), Times{20});
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{0, 7}, {0, 0}}});
  EXPECT_EQ(TimesOf(movie), Times{});
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, Stts{});
  EXPECT_EQ(TimesOf(movie), Times{});
}

TEST(Ranges, AllSamplesEndAfterTenYears) {
  constexpr uint64_t kTenYears = 315360000;
  Movie movie = MovieOf({.timeScale = 1, .samples = SomeSamples(3, kTenYears)});
  movie.timeScale = 1;
  EXPECT_EQ(TimesOf(movie), (Times{0, kTenYears}));
  EXPECT_EQ(TimeStamps(MediaSamples(OpenedReader(BuildMovie(movie).bytes))),
            (Times{0, kTenYears, 2 * kTenYears}));
  EXPECT_EQ(TimeStamps(SamplesBetween(OpenedReader(BuildMovie(movie).bytes), 1, kTenYears + 1, 1,
                                      3 * kTenYears)),
            Times{2 * kTenYears});
}

// Edits
// ---------------------------------------------------------------------------------------------

TEST(EditList, EachEmptyEditGivesOneGapSample) {
  Movie movie = MovieOf({.timeScale = 2000, .samples = SomeSamples(3, 20)});
  movie.tracks[0].edits = {{.segmentDuration = 50, .mediaTime = -1},
                           {.segmentDuration = 15, .mediaTime = 0},
                           {.segmentDuration = 7, .mediaTime = -1},
                           {.segmentDuration = 30, .mediaTime = 40}};
  OpenedReader reader(BuildMovie(movie).bytes);
  const auto samples = AllSamples(reader);
  EXPECT_EQ(TimeStamps(samples), (Times{0, 100, 120, 130, 144}));
  EXPECT_EQ(Flags(samples), (std::vector<uint32_t>{2, 0, 0, 2, 0}));
  const ReadSample& gap = samples[0];
  EXPECT_EQ(gap.info.sampleSize, 0u);
  EXPECT_EQ(gap.info.timeScale, 2000u);
  EXPECT_EQ(gap.info.mediaType, Code("vide"));
  EXPECT_EQ(gap.info.compositionOffset, 0u);
  EXPECT_EQ(gap.descriptor, nullptr);
  EXPECT_EQ(gap.track, reader.TrackAt(0));
  EXPECT_EQ(gap.dataResult, 0u) << "copying its data reads nothing";
}

TEST(EditList, TheFirstEditComparesTheRangesEndWithItsMediaUntranslated) {
  Movie movie = MovieOf({.samples = SomeSamples(10, 10)});
  movie.tracks[0].edits = {{.segmentDuration = 50, .mediaTime = 20}};
  // Until 30 on the presentation timeline would be media until 50; the first edit stops at
  // media 30.
  EXPECT_EQ(TimesBetween(movie, 0, 30), (Times{0, 10}));
  movie.tracks[0].edits = {{.segmentDuration = 10, .mediaTime = 0},
                           {.segmentDuration = 50, .mediaTime = 20}};
  EXPECT_EQ(TimesBetween(movie, 0, 30), (Times{0, 10, 20, 30})) << "later edits translate it";
}

TEST(EditList, EditsWithoutSamplesArePassedOver) {
  Movie movie = MovieOf({.samples = SomeSamples(3, 10)});
  movie.tracks[0].edits = {{.segmentDuration = 10, .mediaTime = 500},
                           {.segmentDuration = 0, .mediaTime = 0},
                           {.segmentDuration = 20, .mediaTime = 10}};
  EXPECT_EQ(TimesOf(movie), (Times{10, 20}));
}

TEST(EditList, AnEmptyListHasNoSamples) {
  Movie movie = MovieOf({.samples = SomeSamples(3)});
  movie.tracks[0].replace["edts"] = Box("edts", FullBox("elst", 0, 0, Elst{}));
  EXPECT_EQ(TimesOf(movie), Times{});
  movie.tracks[0].replace["edts"] = Box("edts");
  EXPECT_EQ(TimesOf(movie).size(), 3u) << "'edts' without a list is no edit list";
}

TEST(EditList, OffsetsWithinAnEditDoNotPassThroughTheMovieScale) {
  Movie movie = MovieOf({.timeScale = 90000, .samples = SomeSamples(4, 3003)});
  movie.timeScale = 10;
  movie.tracks[0].edits = {{.segmentDuration = 5, .mediaTime = 0}};
  EXPECT_EQ(TimesOf(movie), (Times{0, 3003, 6006, 9009}));
}

TEST(EditList, ARunWithoutDurationAtTheMediaTimeIsShownWhereverRoundingPutsTheBegin) {
  // The media time is 100/90000 s; in the movie's scale that is 0.
  Movie movie = MovieOf({.timeScale = 90000, .samples = SomeSamples(5, 100)});
  movie.timeScale = 10;
  movie.tracks[0].replace["stts"] =
      FullBox("stts", 0, 0, Stts{.runs = {{1, 100}, {2, 0}, {2, 100}}});
  movie.tracks[0].edits = {{.segmentDuration = 10, .mediaTime = 100}};
  EXPECT_EQ(TimesOf(movie), (Times{0, 0, 0, 100}));
}

TEST(EditList, AFileWithMovieScale0DoesNoHarm) {
  Movie movie = MovieOf({.samples = SomeSamples(3)});
  movie.timeScale = 0;
  movie.tracks[0].edits = {{.segmentDuration = 5, .mediaTime = -1}, {.segmentDuration = 9}};
  EXPECT_EQ(Flags(AllSamples(OpenedReader(BuildMovie(movie).bytes))).at(0), 2u);
}

}  // namespace
}  // namespace k7mtest
