// Effort and memory in proportion to the file for fragmented documents: every test here would take
// minutes, or gigabytes, if runs or fragments were walked again for each edit, or runs expanded.
#include <gtest/gtest.h>

#include "support/fragment_builder.h"
#include "support/heap_watch.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr uint32_t kMany = 100000;
constexpr uint32_t kEdits = 100000;
constexpr uint64_t kFixedMemory = 64 << 20;
constexpr uint64_t kMemoryPerByteRead = 48;

/// Tracks of samples of 10 units; the first one shows the last of `sampleCount` samples in every
/// one of many edits.
Movie LastSampleManyTimes(uint32_t sampleCount) {
  Movie movie =
      FragmentedMovie({{.duration = 100}, {.handler = "soun", .duration = 100}}, {.duration = 10});
  movie.tracks[0].edits.assign(kEdits,
                               {.segmentDuration = 10, .mediaTime = (sampleCount - 1) * 10});
  return movie;
}

Bytes Repeated(const Bytes& box, uint32_t count) {
  Bytes boxes;
  for (uint32_t i = 0; i < count; ++i) boxes.Append(box);
  return boxes;
}

void ExpectOneSampleAnEdit(Movie movie, const Bytes& fragments) {
  movie.atEnd = fragments;
  OpenedReader reader(BuildMovie(movie).bytes);
  ASSERT_EQ(reader.Result(), 0u);
  reader.Stream().StopLogging();
  QiroK7MTrack* track = reader.TrackAt(0);
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader.Handle(), &track, 1, &iterator), 0u);
  const auto samples = Drain(iterator, false);
  ASSERT_EQ(samples.size(), kEdits);
  for (size_t i = 0; i < samples.size(); ++i) ASSERT_EQ(samples[i].info.timeStamp, 10 * i);
}

TEST(ManyFragments, AreNotWalkedForEveryEdit) {
  const Bytes moof = Moof(Traf(0, Tfhd{}, DefaultRun(1)));
  ExpectOneSampleAnEdit(LastSampleManyTimes(kMany), Repeated(moof, kMany));
}

TEST(ManyFragments, OfOneMoofAreNotWalkedForEveryEdit) {
  const Bytes traf = Traf(0, Tfhd{}, DefaultRun(1));
  ExpectOneSampleAnEdit(LastSampleManyTimes(kMany), Moof(Repeated(traf, kMany)));
}

TEST(ManyRuns, OfOneFragmentAreNotWalkedForEveryEdit) {
  const Bytes runs = Repeated(DefaultRun(1), kMany);
  ExpectOneSampleAnEdit(LastSampleManyTimes(kMany), Moof(Traf(0, Tfhd{}, runs)));
}

TEST(ManyRuns, WithoutSamplesAreSteppedOverAtOnce) {
  const Bytes empty = Repeated(DefaultRun(0), kMany);
  ExpectOneSampleAnEdit(LastSampleManyTimes(2),
                        Moof(Traf(0, Tfhd{}, DefaultRun(1), empty, DefaultRun(1), empty)) +
                            Moof(Traf(0, Tfhd{}, empty)));
}

TEST(ManySamples, OfOneRunAreNotWalkedForEveryEdit) {
  ExpectOneSampleAnEdit(LastSampleManyTimes(0x10000000),
                        Moof(Traf(0, Tfhd{}, DefaultRun(0x10000000))));
  Trun records;
  records.samples.assign(kMany, {.duration = 10});
  ExpectOneSampleAnEdit(LastSampleManyTimes(kMany),
                        Moof(Traf(0, Tfhd{}, FullBox("trun", 0, kTrunDuration, records))));
}

TEST(ManyFragments, WithTimesThatWrapAreSearchedOnce) {
  // A time that no fragment covers; the times pass 64 bits in the first two fragments.
  const auto longRun = [](uint32_t duration) {
    return Moof(Traf(kTfhdDuration, Tfhd{.duration = duration}, DefaultRun(0xFFFFFFFF)));
  };
  Movie movie = FragmentedMovie({{.duration = ~uint64_t{0}}}, {.duration = 0});
  movie.atEnd = longRun(0xFFFFFFF0) + longRun(0x1F) +
                Repeated(Moof(Traf(0, Tfhd{}, DefaultRun(1))), 2 * kMany);
  OpenedReader reader(BuildMovie(movie).bytes);
  ASSERT_EQ(reader.Result(), 0u);
  reader.Stream().StopLogging();
  QiroK7MSampleIterator* iterator = nullptr;
  constexpr uint64_t kUncovered = 0xFFFFFFFFFFFFFFF0;
  EXPECT_EQ(
      QiroK7MReaderGetSamples(reader.Handle(), 1000, kUncovered, 1000, kUncovered + 5, &iterator),
      0u);
  QiroK7MReleaseSampleIterator(iterator);
}

/// Most memory at a time of opening a file and counting its samples, against the bound.
void ExpectWithinBounds(const Bytes& file) {
  ASSERT_TRUE(HeapIsWatched());
  const int64_t before = CountHeap().liveBytes;
  ResetHeapPeak();
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  reader.Stream().StopLogging();
  uint32_t count = 0;
  for (QiroK7MTrack* track : reader.Tracks()) {
    EXPECT_EQ(QiroK7MTrackGetSampleCount(track, &count), 0u);
  }
  const auto heap = static_cast<uint64_t>(CountHeap().peakBytes - before);
  EXPECT_LE(heap + reader.Memory().PeakBytes(),
            kFixedMemory + kMemoryPerByteRead * reader.Stream().BytesDelivered());
}

TEST(FragmentMemory, StaysWithinBoundsForTheSmallestBoxes) {
  constexpr uint32_t kBoxes = 150000;
  const Movie movie = FragmentedMovie({{.duration = 100}}, {.duration = 10});
  const auto with = [&](const Bytes& fragments) {
    Movie whole = movie;
    whole.atEnd = fragments;
    return BuildMovie(whole).bytes;
  };
  ExpectWithinBounds(with(Repeated(Moof(), kBoxes)));
  ExpectWithinBounds(with(Moof(Repeated(Traf(0, Tfhd{}), kBoxes))));
  ExpectWithinBounds(with(Moof(Repeated(Traf(0, Tfhd{}, DefaultRun(1)), kBoxes))));
  ExpectWithinBounds(with(Repeated(Moof(Traf(0, Tfhd{}, DefaultRun(1))), kBoxes)));
  ExpectWithinBounds(with(Moof(Traf(0, Tfhd{}, Repeated(DefaultRun(0), kBoxes)))));
  ExpectWithinBounds(with(Moof(Traf(0, Tfhd{}, Repeated(DefaultRun(1), kBoxes)))));
  const Bytes oneRecord = FullBox("trun", 0, kTrunSize, Trun{.samples = {{}}});
  ExpectWithinBounds(with(Moof(Traf(0, Tfhd{}, Repeated(oneRecord, kBoxes)))));
}

TEST(FragmentMemory, OfARunIsForWhatWasDelivered) {
  // Counts far beyond what the boxes hold; what follows is read as records again and again.
  Bytes runs;
  for (int i = 0; i < 50; ++i) {
    runs.Append(FullBox("trun", 0, 0xF00, Bytes().U32(10000).Fill(40000)));
  }
  Movie movie = FragmentedMovie({{.duration = 100}}, {.duration = 10});
  movie.atEnd = Moof(Traf(0, Tfhd{}, runs)) + Box("mdat", Bytes().Fill(200000));
  ExpectWithinBounds(BuildMovie(movie).bytes);
}

TEST(FragmentMemory, OfManyTracksIsWithinBounds) {
  constexpr uint32_t kTracks = 100000;
  Movie movie = FragmentedMovie({{.duration = 100}}, {.duration = 10});
  std::vector<Trex> all;
  Bytes trafs;
  for (uint32_t id = 1; id <= kTracks; ++id) {
    all.push_back({.trackId = id});
    trafs.Append(Traf(0, Tfhd{.trackId = id}, DefaultRun(1)));
  }
  movie.moreInMoov = Mvex(all);
  movie.atEnd = Moof(trafs);
  ExpectWithinBounds(BuildMovie(movie).bytes);
}

}  // namespace
}  // namespace k7mtest
