// Fragments in the file: what they lack, how many samples they hold, how far they are parsed, and
// what breaks them.
#include <gtest/gtest.h>

#include <algorithm>

#include "fragment_files.h"

namespace k7mtest {
namespace {

// Descriptions that are missing
// ------------------------------------------------------------------------

TEST(MissingDescription, IsWarning3077AndTheLastSampleOfItsTrack) {
  const Bytes bad = Traf(kTfhdDescription, Tfhd{.description = 2}, DefaultRun(2));
  const Bytes file = FileOf(TwoTracks(), Moof(TrafOf(1, 2), bad, TrafOf(1, 1)) + MoofOf(2, 5));
  OpenedReader reader(file);
  const auto samples = AllSamples(reader);
  Times video;
  Times sound;
  for (const ReadSample& sample : samples) {
    const bool isVideo = sample.info.mediaType == Code("vide");
    (isVideo ? video : sound).push_back(sample.info.timeStamp);
    EXPECT_EQ(sample.descriptor == nullptr, isVideo && sample.info.timeStamp == 20);
  }
  EXPECT_EQ(video, (Times{0, 10, 20}));
  EXPECT_EQ(sound, (Times{0, 10, 20, 30, 40}));
  EXPECT_EQ(reader.Warnings().Seen(),
            (std::vector<QiroK7MError>{kQiroK7MWarningUnknownSampleDescription}));
}

TEST(MissingDescription, EndsTheTrackAlsoWhenOtherEditsFollow) {
  Movie movie = FragmentedMovie({{.edits = {{10, 0}, {5, -1}, {10, 10}}}},
                                {.description = 9, .duration = 10, .size = 4});
  OpenedReader reader(FileOf(movie, MoofOf(1, 3)));
  EXPECT_EQ(TimeStamps(AllSamples(reader)), (Times{0}));
  EXPECT_EQ(TimeStamps(MediaSamples(reader)), (Times{0}));
}

TEST(MissingDescription, ZeroAndAllBitsSetNameNoEntry) {
  for (const uint32_t description : {0u, 2u, 0xFFFFFFFFu}) {
    Movie movie = FragmentedMovie({{.duration = 1000}},
                                  {.description = description, .duration = 10, .size = 4});
    OpenedReader reader(FileOf(movie, MoofOf(1, 3)));
    EXPECT_EQ(AllSamples(reader).size(), 1u);
    EXPECT_EQ(reader.Warnings().Count(kQiroK7MWarningUnknownSampleDescription), 1u);
  }
}

TEST(MissingDescription, ARefusedWarningOfAFirstSampleFailsTheQueryWith1028) {
  Movie movie = FragmentedMovie({{.duration = 1000}}, {.description = 9, .duration = 10});
  OpenedReader reader(FileOf(movie, MoofOf(1, 3)));
  reader.Warnings().RefuseNth(1);
  QiroK7MSampleIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MReaderGetAllSamples(reader.Handle(), &iterator),
            kQiroK7MErrorAbortedByWarningHandler);
  EXPECT_EQ(iterator, nullptr);
  EXPECT_EQ(AllSamples(reader).size(), 1u);  // Accepted, it is delivered.
}

TEST(MissingDescription, ARefusedWarningLaterIsToldBehindTheSampleBefore) {
  const Bytes bad = Traf(kTfhdDescription, Tfhd{.description = 2}, DefaultRun(2));
  OpenedReader reader(FileOf(OneTrack(), MoofOf(1, 1) + Moof(bad)));
  QiroK7MSampleIterator* iterator = IterateAll(reader);
  reader.Warnings().RefuseNth(1);
  ReadSample sample;
  EXPECT_EQ(Next(iterator, &sample), 0u);
  EXPECT_EQ(sample.info.timeStamp, 0u);
  EXPECT_TRUE(HasMore(iterator));
  EXPECT_EQ(Next(iterator), kQiroK7MErrorAbortedByWarningHandler);
  EXPECT_FALSE(HasMore(iterator));
  QiroK7MReleaseSampleIterator(iterator);
}

// Counting
// -------------------------------------------------------------------------------------------

uint32_t CountOf(QiroK7MTrack* track) {
  uint32_t count = 77;
  EXPECT_EQ(QiroK7MTrackGetSampleCount(track, &count), 0u);
  return count;
}

TEST(FragmentCount, AddsTheRunsOfTheWholeFileToTheTable) {
  Movie movie = FragmentedMovie({{.samples = SomeSamples(3)}, {.handler = "soun"}}, kDefaults);
  const Bytes file = FileOf(movie, Moof(TrafOf(1, 2), TrafOf(2, 7), TrafOf(1, 4)) + Box("free") +
                                       MoofOf(2, 1) + MoofOf(1, 100));
  OpenedReader reader(file);
  EXPECT_EQ(CountOf(reader.TrackAt(0)), 109u);
  EXPECT_EQ(CountOf(reader.TrackAt(1)), 8u);
}

TEST(FragmentCount, DoesNotDependOnTimes) {
  Movie movie = FragmentedMovie({{.duration = 0}}, {.duration = 0xFFFFFFFF});
  OpenedReader reader(FileOf(movie, MoofOf(1, 0xFFFFFFFF) + MoofOf(1, 3) + MoofOf(1, 4)));
  EXPECT_EQ(CountOf(reader.TrackAt(0)), 6u);  // The sum wraps in 32 bits.
}

TEST(FragmentCount, OfABrokenFileIsItsError) {
  const Bytes broken = Moof(Box("traf", DefaultRun(1)));
  OpenedReader reader(FileOf(OneTrack(), MoofOf(1, 1) + broken));
  uint32_t count = 77;
  EXPECT_EQ(QiroK7MTrackGetSampleCount(reader.TrackAt(0), &count), kQiroK7MErrorInvalidHierarchy);
  EXPECT_EQ(count, 77u);
}

// Laziness
// -------------------------------------------------------------------------------------------

/// The end of the bytes that were read farthest behind.
uint64_t GreatestRead(OpenedReader& reader) {
  uint64_t greatest = 0;
  for (const CallRecord& call : reader.Stream().Log()) {
    if (call.call == Call::kRead) greatest = std::max(greatest, call.offset + call.delivered);
  }
  return greatest;
}

TEST(LazyFragments, AreParsedWhenTheirSamplesAreComing) {
  const Movie movie = OneTrack();
  const uint64_t start = BuildMovie(movie).bytes.Size();
  const Bytes moof = MoofOf(1, 2);
  const auto endOf = [&](uint64_t count) { return start + count * moof.Size(); };
  OpenedReader reader(FileOf(movie, moof + moof + moof));
  EXPECT_LE(GreatestRead(reader), start);
  QiroK7MSampleIterator* iterator = IterateAll(reader);
  EXPECT_EQ(GreatestRead(reader), endOf(1));
  EXPECT_EQ(Next(iterator), 0u);  // Now the second one is at hand, from the same fragment.
  EXPECT_EQ(GreatestRead(reader), endOf(1));
  EXPECT_EQ(Next(iterator), 0u);
  EXPECT_EQ(GreatestRead(reader), endOf(2));
  QiroK7MReleaseSampleIterator(iterator);
}

TEST(LazyFragments, AGrowingFileGivesItsLaterFragments) {
  OpenedReader reader(FileOf(OneTrack(), MoofOf(1, 2)));
  EXPECT_EQ(AllSamples(reader).size(), 2u);
  reader.Stream().Grow(MoofOf(1, 1));
  EXPECT_EQ(TimeStamps(AllSamples(reader)), (Times{0, 10, 20}));
  QiroK7MSampleIterator* iterator = IterateAll(reader);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(Next(iterator), 0u);
  reader.Stream().Grow(MoofOf(1, 1));
  EXPECT_EQ(Drain(iterator).size(), 2u);
}

TEST(LazyFragments, AreParsedOnceForAllQueries) {
  OpenedReader reader(FileOf(OneTrack(), MoofOf(1, 2) + MoofOf(1, 2)));
  AllSamples(reader, false);
  const uint64_t delivered = reader.Stream().BytesDelivered();
  AllSamples(reader, false);
  SamplesBetween(reader, 1000, 15, 1000, 35);
  EXPECT_EQ(reader.Stream().BytesDelivered(), delivered);
}

TEST(LazyFragments, IteratorsOfOneReaderDoNotDisturbEachOther) {
  OpenedReader reader(FileOf(TwoTracks(), MoofOf(1, 3) + MoofOf(2, 3) + MoofOf(1, 2)));
  QiroK7MSampleIterator* first = IterateAll(reader);
  EXPECT_EQ(Next(first), 0u);
  QiroK7MSampleIterator* second = IterateAll(reader);
  EXPECT_EQ(Next(second), 0u);
  EXPECT_EQ(AllSamples(reader).size(), 8u);
  EXPECT_EQ(Drain(first).size(), 7u);
  EXPECT_EQ(Drain(second).size(), 7u);
}

// Errors
// ---------------------------------------------------------------------------------------------

struct BrokenFragment {
  const char* name;
  Bytes moof;
  QiroK7MError error;
};

std::vector<BrokenFragment> BrokenFragments() {
  const Bytes tfhd = FullBox("tfhd", 0, 0, Tfhd{});
  return {
      {"no mfhd", Box("moof", TrafOf(1, 1)), kQiroK7MErrorInvalidHierarchy},
      {"no tfhd", Moof(Box("traf", DefaultRun(1))), kQiroK7MErrorInvalidHierarchy},
      {"no trex", Moof(TrafOf(3, 1)), kQiroK7MErrorNoTrackExtends},
      {"short mfhd", Box("moof", FullBox("mfhd", 0, 0)), kQiroK7MErrorBoxTruncated},
      {"short trun", Moof(Box("traf", tfhd, FullBox("trun", 0, 0))), kQiroK7MErrorBoxTruncated},
      {"short records", Moof(Box("traf", tfhd, FullBox("trun", 0, 0x100, Trun{.count = 9}))),
       kQiroK7MErrorBoxTruncated},
      {"too many records",
       Moof(Box("traf", tfhd, FullBox("trun", 0, 0x300, Trun{.count = 0x80000000}))),
       kQiroK7MErrorTrunSampleCount},
      {"no version", Moof(Box("traf", tfhd, Box("trun"))), kQiroK7MErrorBadFullBoxHeader},
  };
}

TEST(BrokenFragment, FailsTheQueryThatPositionsBehindIt) {
  for (const BrokenFragment& broken : BrokenFragments()) {
    OpenedReader reader(FileOf(OneTrack(), broken.moof + MoofOf(1, 1)));
    ASSERT_EQ(reader.Result(), 0u);
    QiroK7MSampleIterator* iterator = nullptr;
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(QiroK7MReaderGetAllSamples(reader.Handle(), &iterator), broken.error)
          << broken.name;
      EXPECT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator), broken.error);
    }
    EXPECT_EQ(iterator, nullptr);
  }
}

TEST(BrokenFragment, BeforeTheMovieFailsTheOpening) {
  for (const BrokenFragment& broken : BrokenFragments()) {
    EXPECT_EQ(OpenResult(broken.moof + FileOf(OneTrack(), {})), broken.error) << broken.name;
  }
}

TEST(BrokenFragment, IsToldBehindTheLastSampleBeforeIt) {
  for (const BrokenFragment& broken : BrokenFragments()) {
    OpenedReader reader(FileOf(OneTrack(), MoofOf(1, 2) + broken.moof + MoofOf(1, 1)));
    QiroK7MSampleIterator* iterator = IterateAll(reader);
    ReadSample sample;
    EXPECT_EQ(Next(iterator, &sample), 0u);
    EXPECT_EQ(Next(iterator, &sample), 0u);
    EXPECT_EQ(sample.info.timeStamp, 10u);
    EXPECT_TRUE(HasMore(iterator));
    EXPECT_EQ(Next(iterator), broken.error) << broken.name;
    EXPECT_FALSE(HasMore(iterator));
    EXPECT_EQ(Next(iterator), 0u);
    QiroK7MReleaseSampleIterator(iterator);
  }
}

TEST(BrokenFragment, EndsEachTrackThatComesThereAndTheOthersGoOn) {
  const Bytes broken = Moof(TrafOf(3, 1));
  OpenedReader reader(FileOf(TwoTracks(), Moof(TrafOf(1, 1), TrafOf(2, 3)) + broken));
  QiroK7MSampleIterator* iterator = IterateAll(reader);
  EXPECT_EQ(Next(iterator), 0u);
  EXPECT_EQ(Next(iterator), kQiroK7MErrorNoTrackExtends);  // The video track ends.
  ReadSample sample;
  for (const uint64_t time : {0u, 10u, 20u}) {
    EXPECT_EQ(Next(iterator, &sample), 0u);
    EXPECT_EQ(sample.info.timeStamp, time);
    EXPECT_EQ(sample.info.mediaType, Code("soun"));
  }
  EXPECT_EQ(Next(iterator), kQiroK7MErrorNoTrackExtends);
  EXPECT_FALSE(HasMore(iterator));
  QiroK7MReleaseSampleIterator(iterator);
}

}  // namespace
}  // namespace k7mtest
