// The samples of fragmented documents: which are delivered, with what record, from how much of the
// file.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/fragment_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

using Times = std::vector<uint64_t>;

/// Samples of 10 units and 4 bytes that are key samples.
constexpr Trex kDefaults = {.duration = 10, .size = 4};

Movie OneTrack(uint64_t duration = 1000) {
  return FragmentedMovie({{.duration = duration}}, kDefaults);
}

Movie TwoTracks() {
  return FragmentedMovie({{.duration = 1000}, {.handler = "soun", .duration = 1000}}, kDefaults);
}

Bytes FileOf(Movie movie, const Bytes& fragments) {
  movie.atEnd = fragments;
  return BuildMovie(movie).bytes;
}

Bytes TrafOf(uint32_t trackId, uint32_t count) {
  return Traf(0, Tfhd{.trackId = trackId}, DefaultRun(count));
}

Bytes MoofOf(uint32_t trackId, uint32_t count) { return Moof(TrafOf(trackId, count)); }

Times AllTimes(const Bytes& file) { return TimeStamps(AllSamples(OpenedReader(file))); }

Times TimesBetween(const Bytes& file, uint64_t start, uint64_t end) {
  OpenedReader reader(file);
  return TimeStamps(SamplesBetween(reader, 1000, start, 1000, end));
}

QiroK7MSampleIterator* IterateAll(const OpenedReader& reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MReaderGetAllSamples(reader.Handle(), &iterator), 0u);
  return iterator;
}

QiroK7MError Next(QiroK7MSampleIterator* iterator, ReadSample* taken = nullptr) {
  QiroK7MSample* sample = nullptr;
  const QiroK7MError result = QiroK7MSampleIteratorGetNextEntry(iterator, &sample);
  if (sample != nullptr) {
    const ReadSample read = TakeSample(sample, false);
    if (taken != nullptr) *taken = read;
  }
  return result;
}

// Walking
// --------------------------------------------------------------------------------------------

TEST(Fragments, FollowEachOtherAcrossRunsTrafsAndMoofs) {
  const Bytes file = FileOf(
      OneTrack(), Moof(Traf(0, Tfhd{}, DefaultRun(1), DefaultRun(2)), TrafOf(1, 1)) + Box("free") +
                      MoofOf(1, 2) + Box("mdat", Bytes().Fill(8)) + MoofOf(1, 1));
  EXPECT_EQ(AllTimes(file), (Times{0, 10, 20, 30, 40, 50, 60}));
}

TEST(Fragments, ThoseOfOtherTracksAreSkipped) {
  const Bytes file = FileOf(TwoTracks(), MoofOf(1, 1) + MoofOf(2, 3) + Moof() + MoofOf(2, 1) +
                                             Moof(TrafOf(2, 1), TrafOf(1, 2)));
  OpenedReader reader(file);
  EXPECT_EQ(TimeStamps(MediaSamples(reader, reader.TrackAt(0))), (Times{0, 10, 20}));
  EXPECT_EQ(AllSamples(reader).size(), 8u);
}

TEST(Fragments, RunsAndTrafsWithoutSamplesAreSteppedOver) {
  const Bytes file =
      FileOf(OneTrack(), Moof(Traf(0, Tfhd{})) + MoofOf(1, 0) +
                             Moof(Traf(0, Tfhd{}, DefaultRun(0), DefaultRun(1), DefaultRun(0))) +
                             MoofOf(1, 0) + Moof(TrafOf(1, 0), TrafOf(1, 1)));
  EXPECT_EQ(AllTimes(file), (Times{0, 10}));
}

TEST(Fragments, SamplesOfTheMovieBoxAreNotAmongThoseOfARange) {
  Movie movie = FragmentedMovie({{.samples = SomeSamples(3), .duration = 1000}}, kDefaults);
  const Bytes file = FileOf(movie, MoofOf(1, 2));
  OpenedReader reader(file);
  EXPECT_EQ(TimeStamps(AllSamples(reader)), (Times{0, 10}));
  EXPECT_EQ(TimeStamps(MediaSamples(reader)), (Times{0, 10, 20, 0, 10}));
}

TEST(Fragments, ADocumentWithoutAnyHasNoSamples) {
  for (const Bytes& behind : {Bytes(), Box("free"), MoofOf(1, 0)}) {
    OpenedReader reader(FileOf(OneTrack(), behind));
    QiroK7MSampleIterator* iterator = IterateAll(reader);
    EXPECT_FALSE(HasMore(iterator));
    QiroK7MReleaseSampleIterator(iterator);
    EXPECT_TRUE(MediaSamples(reader).empty());
  }
}

TEST(Fragments, OfSeveralTracksAreMergedByTime) {
  Movie movie = FragmentedMovie(
      {{.handler = "soun", .timeScale = 500, .duration = 1000}, {.duration = 1000}}, kDefaults);
  OpenedReader reader(FileOf(movie, MoofOf(1, 2) + MoofOf(2, 5)));
  std::vector<std::string> order;
  for (const ReadSample& sample : AllSamples(reader)) {
    order.push_back((sample.info.mediaType == Code("vide") ? "v" : "s") +
                    std::to_string(sample.info.timeStamp));
  }
  // Video before sound where the times are equal.
  EXPECT_EQ(order, (std::vector<std::string>{"v0", "s0", "v10", "v20", "s10", "v30", "v40"}));
}

TEST(Fragments, AFragmentBeforeTheMovieIsRead) {
  const Movie movie = OneTrack();
  const Bytes whole = FileOf(movie, MoofOf(1, 1));
  OpenedReader reader(MoofOf(1, 2) + whole);
  ASSERT_EQ(reader.Result(), 0u);
  QiroK7MDocInfo info{};
  EXPECT_EQ(QiroK7MReaderGetDocInfo(reader.Handle(), &info), 0u);
  EXPECT_EQ(info.isFragmented, 1u);
  EXPECT_EQ(reader.Tracks().size(), 1u);
  EXPECT_EQ(TimeStamps(AllSamples(reader)), (Times{0, 10, 20}));
}

TEST(Fragments, ADocumentIsFragmentedByItsMvexAlone) {
  Movie plain;
  plain.tracks.push_back({.samples = SomeSamples(2)});
  plain.atEnd = Moof();
  EXPECT_EQ(AllTimes(BuildMovie(plain).bytes).size(), 2u);
  plain.moreInMoov = Box("mvex");
  plain.atEnd = {};
  EXPECT_TRUE(AllTimes(BuildMovie(plain).bytes).empty());
}

// Ranges
// ---------------------------------------------------------------------------------------------

TEST(FragmentRange, BeginsWithTheFirstSampleAtOrAfterItsStart) {
  const Bytes file = FileOf(OneTrack(), MoofOf(1, 3) + MoofOf(1, 3));
  EXPECT_EQ(TimesBetween(file, 10, 1000), (Times{10, 20, 30, 40, 50}));
  EXPECT_EQ(TimesBetween(file, 11, 1000), (Times{20, 30, 40, 50}));
  EXPECT_EQ(TimesBetween(file, 21, 1000), (Times{30, 40, 50}));  // In the last of the first moof.
  EXPECT_EQ(TimesBetween(file, 50, 1000), (Times{50}));
  EXPECT_EQ(TimesBetween(file, 51, 1000), (Times{}));
  EXPECT_EQ(TimesBetween(file, 61, 1000), (Times{}));
}

TEST(FragmentRange, EndsBeforeItsEnd) {
  const Bytes file = FileOf(OneTrack(), MoofOf(1, 2) + MoofOf(1, 2));
  EXPECT_EQ(TimesBetween(file, 0, 20), (Times{0, 10}));
  EXPECT_EQ(TimesBetween(file, 0, 21), (Times{0, 10, 20}));
  EXPECT_EQ(TimesBetween(file, 10, 10), (Times{}));
  EXPECT_EQ(TimesBetween(file, 20, 10), (Times{}));
  EXPECT_EQ(TimesBetween(file, 0, 0), (Times{}));
}

TEST(FragmentRange, IsTheSameWhetherOrNotAllIsParsed) {
  const Bytes file = FileOf(OneTrack(), Moof(TrafOf(1, 2), TrafOf(1, 1)) + MoofOf(1, 3));
  for (uint64_t start = 0; start < 70; ++start) {
    OpenedReader fresh(file);
    OpenedReader parsed(file);
    AllSamples(parsed);
    EXPECT_EQ(TimeStamps(SamplesBetween(fresh, 1000, start, 1000, 55)),
              TimeStamps(SamplesBetween(parsed, 1000, start, 1000, 55)))
        << start;
  }
}

TEST(FragmentRange, OfATrackOfDurationZeroIsEmpty) {
  const Bytes file = FileOf(OneTrack(0), MoofOf(1, 2));
  EXPECT_EQ(AllTimes(file), (Times{}));
  EXPECT_EQ(TimesBetween(file, 0, 1000), (Times{}));
  OpenedReader reader(file);
  EXPECT_EQ(TimeStamps(MediaSamples(reader)), (Times{0, 10}));
}

TEST(FragmentRange, EndsWithTheTrackDurationWithoutAnEditList) {
  EXPECT_EQ(AllTimes(FileOf(OneTrack(20), MoofOf(1, 5))), (Times{0, 10}));
  EXPECT_EQ(AllTimes(FileOf(OneTrack(21), MoofOf(1, 5))), (Times{0, 10, 20}));
}

TEST(FragmentRange, EndsAfterTenYears) {
  constexpr uint64_t kTenYears = 315360000;
  Movie movie =
      FragmentedMovie({{.timeScale = 1, .duration = 0xFFFFFFFFFFFF}}, {.duration = kTenYears / 2});
  EXPECT_EQ(AllTimes(FileOf(movie, MoofOf(1, 4))), (Times{0, kTenYears / 2}));
}

// Edits
// ----------------------------------------------------------------------------------------------

Bytes WithEdits(const std::vector<Elst::Entry>& edits, const Bytes& fragments) {
  return FileOf(FragmentedMovie({{.edits = edits}}, kDefaults), fragments);
}

TEST(FragmentEdits, AnEmptyEditIsOneGapSample) {
  const Bytes file = WithEdits({{30, -1}, {20, 0}, {5, -1}}, MoofOf(1, 5));
  OpenedReader reader(file);
  const auto samples = AllSamples(reader);
  EXPECT_EQ(TimeStamps(samples), (Times{0, 30, 40, 50}));
  EXPECT_EQ(Flags(samples), (std::vector<uint32_t>{2, 1, 1, 2}));
  EXPECT_EQ(samples[0].info.sampleSize, 0u);
  EXPECT_EQ(samples[0].info.timeScale, 1000u);
  EXPECT_EQ(samples[0].info.mediaType, Code("vide"));
  EXPECT_EQ(samples[0].descriptor, nullptr);
  EXPECT_EQ(samples[0].track, reader.TrackAt(0));
}

TEST(FragmentEdits, AnEditStartsInTheMiddleOfTheMedia) {
  EXPECT_EQ(AllTimes(WithEdits({{100, 20}}, MoofOf(1, 2) + MoofOf(1, 3))), (Times{0, 10, 20}));
  // A sample that begins before the media time is not shown.
  EXPECT_EQ(AllTimes(WithEdits({{100, 15}}, MoofOf(1, 2) + MoofOf(1, 3))), (Times{5, 15, 25}));
}

TEST(FragmentEdits, AnEditExcludesItsEnd) {
  EXPECT_EQ(AllTimes(WithEdits({{20, 10}, {20, 0}}, MoofOf(1, 5))), (Times{0, 10, 20, 30}));
}

TEST(FragmentEdits, MediaMayBeShownAgainAndBackwards) {
  const Bytes file = WithEdits({{20, 30}, {10, 0}, {20, 30}}, MoofOf(1, 2) + MoofOf(1, 3));
  EXPECT_EQ(AllTimes(file), (Times{0, 10, 20, 30, 40}));
}

TEST(FragmentEdits, OnesThatShowNothingArePassedOver) {
  const Bytes file = WithEdits({{10, 500}, {0, 0}, {5, 1}, {10, 0}, {7, 900}}, MoofOf(1, 3));
  EXPECT_EQ(AllTimes(file), (Times{15}));
  EXPECT_EQ(AllTimes(WithEdits({{10, 500}}, MoofOf(1, 3))), (Times{}));
}

TEST(FragmentEdits, TheFirstOneDeliberatelyEndsWithTheUntranslatedEndOfTheRange) {
  // The edit shows the media from 20 on. A range of [0, 30) ends at media time 30, not 50.
  const Bytes file = WithEdits({{100, 20}}, MoofOf(1, 8));
  EXPECT_EQ(TimesBetween(file, 0, 30), (Times{0}));
  // A later edit is translated.
  const Bytes later = WithEdits({{10, 0}, {100, 20}}, MoofOf(1, 8));
  EXPECT_EQ(TimesBetween(later, 0, 30), (Times{0, 10, 20}));
}

TEST(FragmentEdits, ARangeMayStartInsideAnEdit) {
  const Bytes file = WithEdits({{20, 0}, {40, 10}}, MoofOf(1, 8));
  EXPECT_EQ(TimesBetween(file, 10, 100), (Times{10, 20, 30, 40, 50}));
  EXPECT_EQ(TimesBetween(file, 31, 1000), (Times{40, 50}));
}

TEST(FragmentEdits, TimesAreConvertedBetweenTheScales) {
  Movie movie = FragmentedMovie({{.timeScale = 500, .edits = {{30, -1}, {40, 20}}}}, kDefaults);
  OpenedReader reader(FileOf(movie, MoofOf(1, 8)));
  // The gap of 30 in the movie is 15 in the track; 40 of the movie are two samples.
  EXPECT_EQ(TimeStamps(AllSamples(reader)), (Times{0, 15, 25}));
}

// Records
// ---------------------------------------------------------------------------------------------

TEST(FragmentSample, HasItsRecordFromTheRun) {
  const Trun records{.samples = {{10, 3, 0, 7}, {20, 5, 0x01010000, 0xFFFFFFFE}}};
  const Movie movie = FragmentedMovie({{.timeScale = 90000, .duration = 1000}}, kDefaults);
  OpenedReader reader(FileOf(movie, Moof(Traf(0, Tfhd{}, FullBox("trun", 0, 0xF00, records)))));
  const auto samples = AllSamples(reader);
  ASSERT_EQ(samples.size(), 2u);
  EXPECT_EQ(samples[0].info.size, sizeof(QiroK7MSampleInfo));
  EXPECT_EQ(samples[0].info.sampleSize, 3u);
  EXPECT_EQ(samples[0].info.compositionOffset, 7u);
  EXPECT_EQ(samples[1].info.sampleSize, 5u);
  EXPECT_EQ(samples[1].info.timeStamp, 10u);
  EXPECT_EQ(samples[1].info.compositionOffset, 0xFFFFFFFEu);
  EXPECT_EQ(samples[1].info.timeScale, 90000u);
  EXPECT_EQ(samples[1].info.mediaType, Code("vide"));
  EXPECT_EQ(samples[1].track, reader.TrackAt(0));
}

TEST(FragmentSample, IsAKeyUnlessItIsNonSyncOrDependsOnOthers) {
  struct Case {
    uint32_t dependsOn;
    bool isNonSync;
    uint32_t key;
  };
  // Of the two bits of the depends-on field the lower one alone counts.
  const std::vector<Case> cases = {{0, false, 1}, {1, false, 0}, {2, false, 1}, {3, false, 0},
                                   {0, true, 0},  {1, true, 0},  {2, true, 0},  {3, true, 0}};
  Trun records;
  std::vector<uint32_t> expected;
  for (const Case& c : cases) {
    for (const uint32_t others : {0u, 0xFCFEFFFFu}) {
      records.samples.push_back(
          {.flags = c.dependsOn << 24 | (c.isNonSync ? 0x10000 : 0) | others});
      expected.push_back(c.key);
    }
  }
  OpenedReader reader(
      FileOf(OneTrack(), Moof(Traf(0, Tfhd{}, FullBox("trun", 0, kTrunFlags, records)))));
  EXPECT_EQ(Flags(AllSamples(reader)), expected);
}

TEST(FragmentSample, CarriesNoDependencyByte) {
  Movie movie = FragmentedMovie({{.duration = 1000, .hasSdtp = true}}, kDefaults);
  OpenedReader reader(FileOf(movie, MoofOf(1, 1)));
  EXPECT_EQ(Flags(AllSamples(reader)), (std::vector<uint32_t>{1}));
}

TEST(FragmentSample, HasTheDescriptionOfItsTraf) {
  Movie movie = FragmentedMovie({{.descriptions = {VideoEntry(), VideoEntry()}, .duration = 1000}},
                                kDefaults);
  const Bytes second = Traf(kTfhdDescription, Tfhd{.description = 2}, DefaultRun(1));
  OpenedReader reader(FileOf(movie, MoofOf(1, 1) + Moof(second, TrafOf(1, 1))));
  const auto descriptors = DescriptorsOf(reader.TrackAt(0));
  const auto samples = AllSamples(reader);
  ASSERT_EQ(samples.size(), 3u);
  EXPECT_EQ(samples[0].descriptor, descriptors[0]);
  EXPECT_EQ(samples[1].descriptor, descriptors[1]);
  EXPECT_EQ(samples[2].descriptor, descriptors[0]);
}

TEST(FragmentSample, HasItsBytesFromItsAbsoluteOffset) {
  Movie movie = OneTrack();
  const uint64_t size = BuildMovie(movie).bytes.Size();
  const Bytes media = Pattern(40);
  const Tfhd tfhd{.baseDataOffset = size + 8};
  const Bytes run = FullBox("trun", 0, kTrunOffset, Trun{.dataOffset = 3, .count = 2});
  OpenedReader reader(FileOf(movie, Box("mdat", media) + Moof(Traf(kTfhdBase, tfhd, run))));
  const auto samples = AllSamples(reader);
  ASSERT_EQ(samples.size(), 2u);
  EXPECT_EQ(samples[0].data, media.Slice(3, 4));
  EXPECT_EQ(samples[1].data, media.Slice(7, 4));
}

TEST(FragmentSample, WithBytesBeforeTheMediaOrBehindTheEndIsError1030) {
  Movie movie = OneTrack();
  const uint64_t size = BuildMovie(movie).bytes.Size();
  for (const uint64_t base : {uint64_t{0}, size - 9, size * 10, uint64_t{1} << 63, ~uint64_t{0}}) {
    const Bytes moof = Moof(Traf(kTfhdBase, Tfhd{.baseDataOffset = base}, DefaultRun(1)));
    OpenedReader reader(FileOf(movie, moof));
    const auto samples = AllSamples(reader);
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(samples[0].dataResult, kQiroK7MErrorSampleDataShort) << base;
  }
}

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
