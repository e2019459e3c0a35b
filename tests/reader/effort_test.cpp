// Effort in proportion to the file: every test here would take minutes if a walk over runs or
// tracks were repeated for each edit or sample, and is then ended by the time limit of its program.
#include <gtest/gtest.h>

#include "support/movie_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr size_t kEmptyRuns = 1000000;
constexpr size_t kEdits = 100000;

/// Two samples at 0 and 10, and many edits, each of which shows both of them.
Movie TwoSamplesManyTimes() {
  Movie movie;
  movie.tracks.push_back({.samples = {SampleOf(1), SampleOf(1)}});
  movie.tracks[0].edits.assign(kEdits, {.segmentDuration = 20, .mediaTime = 0});
  return movie;
}

void ExpectBothInEveryEdit(const Movie& movie) {
  OpenedReader reader(BuildMovie(movie).bytes);
  ASSERT_EQ(reader.Result(), 0u);
  const auto samples = AllSamples(reader, false);
  ASSERT_EQ(samples.size(), 2 * kEdits);
  for (size_t i = 0; i < samples.size(); ++i) ASSERT_EQ(samples[i].info.timeStamp, 10 * i);
}

TEST(EmptyRuns, OfDurationsAreSteppedOverAtOnce) {
  Movie movie = TwoSamplesManyTimes();
  Stts stts{.runs = {{1, 10}}};
  stts.runs.resize(1 + kEmptyRuns, {0, 7});
  stts.runs.push_back({1, 10});
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, stts);
  ExpectBothInEveryEdit(movie);
}

TEST(EmptyRuns, OfCompositionOffsetsAreSteppedOverAtOnce) {
  Movie movie = TwoSamplesManyTimes();
  movie.tracks[0].hasCtts = true;
  Ctts ctts{.runs = {{1, 3}}};
  ctts.runs.resize(1 + kEmptyRuns, {0, 7});
  ctts.runs.push_back({1, 4});
  movie.tracks[0].replace["ctts"] = FullBox("ctts", 0, 0, ctts);
  ExpectBothInEveryEdit(movie);
}

TEST(EmptyRuns, OfChunksAreSteppedOverAtOnce) {
  Movie movie = TwoSamplesManyTimes();
  Stsc stsc{.runs = {{1, 1, 1}}};
  stsc.runs.resize(1 + kEmptyRuns, {2, 1, 1});  // All but the last one end where they start.
  movie.tracks[0].replace["stsc"] = FullBox("stsc", 0, 0, stsc);
  ExpectBothInEveryEdit(movie);
}

TEST(EmptyRuns, AtTheEndOfEveryTableCostNothing) {
  Movie movie = TwoSamplesManyTimes();
  Stts stts{.runs = {{2, 10}}};
  stts.runs.resize(1 + kEmptyRuns, {0, 7});
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, stts);
  Stsc stsc{.runs = {{1, 1, 1}}};
  for (uint32_t i = 0; i < kEmptyRuns; ++i) stsc.runs.push_back({3 + i, 0, 1});
  movie.tracks[0].replace["stsc"] = FullBox("stsc", 0, 0, stsc);
  ExpectBothInEveryEdit(movie);
}

TEST(ManyTracks, AreMergedWithoutALookAtAllOfThemForEverySample) {
  constexpr uint32_t kTracks = 20000;
  constexpr uint32_t kSamples = 40;
  Movie movie;
  movie.timeScale = 1000;
  for (uint32_t i = 0; i < kTracks; ++i) {
    Track track{.samples = {SampleOf(1)}, .duration = kSamples * 10};
    track.replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{kSamples, 10}}});
    track.replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, kSamples, 1}}});
    track.replace["stsz"] =
        FullBox("stsz", 0, 0, Stsz{.constantSize = 1, .sizes = {}, .count = kSamples});
    movie.tracks.push_back(track);
  }
  OpenedReader reader(BuildMovie(movie).bytes);
  ASSERT_EQ(reader.Result(), 0u);
  const std::vector<QiroK7MTrack*> tracks = reader.Tracks();
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamples(reader.Handle(), &iterator), 0u);
  for (uint32_t i = 0; i < kTracks * kSamples; ++i) {
    QiroK7MSample* sample = nullptr;
    ASSERT_EQ(QiroK7MSampleIteratorGetNextEntry(iterator, &sample), 0u);
    ASSERT_NE(sample, nullptr) << i;
    QiroK7MSampleInfo info;
    QiroK7MTrack* track = nullptr;
    ASSERT_EQ(QiroK7MSampleGetInfo(sample, &info), 0u);
    ASSERT_EQ(QiroK7MSampleGetTrack(sample, &track), 0u);
    ASSERT_EQ(info.timeStamp, i / kTracks * 10);
    ASSERT_EQ(track, tracks[i % kTracks]);
    QiroK7MReleaseSample(sample);
  }
  EXPECT_FALSE(HasMore(iterator));
  QiroK7MReleaseSampleIterator(iterator);
}

}  // namespace
}  // namespace k7mtest
