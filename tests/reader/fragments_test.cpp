// The samples of fragmented documents: which are delivered, and with what record.
#include <gtest/gtest.h>

#include "fragment_files.h"

namespace k7mtest {
namespace {

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

/// Runs of samples with the given durations in one 'moof'; the last sample may have none.
Bytes MoofOfDurations(const std::vector<uint32_t>& durations) {
  Trun run;
  for (const uint32_t duration : durations) run.samples.push_back({.duration = duration});
  return Moof(Traf(0, Tfhd{}, FullBox("trun", 0, kTrunDuration, run)));
}

TEST(FragmentRange, ASampleWithoutDurationAtTheEndOfAFragmentIsFound) {
  // One at 20, where the second fragment begins, and one at 30, where the file ends.
  const Bytes file = FileOf(OneTrack(), MoofOfDurations({10, 10, 0}) + MoofOfDurations({10, 0}));
  EXPECT_EQ(AllTimes(file), (Times{0, 10, 20, 20, 30}));
  EXPECT_EQ(TimesBetween(file, 11, 1000), (Times{20, 20, 30}));
  EXPECT_EQ(TimesBetween(file, 20, 1000), (Times{20, 20, 30}));
  EXPECT_EQ(TimesBetween(file, 21, 1000), (Times{30}));
  EXPECT_EQ(TimesBetween(file, 30, 1000), (Times{30}));
  EXPECT_EQ(TimesBetween(file, 31, 1000), (Times{}));
  EXPECT_EQ(TimesBetween(file, 0, 20), (Times{0, 10}));
  EXPECT_EQ(TimesBetween(file, 20, 21), (Times{20, 20}));
}

TEST(FragmentRange, AFragmentWithoutDurationIsFound) {
  const Bytes file =
      FileOf(OneTrack(), MoofOfDurations({10, 10}) + MoofOfDurations({0, 0}) + MoofOf(1, 1));
  EXPECT_EQ(TimesBetween(file, 20, 1000), (Times{20, 20, 20}));
  EXPECT_EQ(TimesBetween(FileOf(OneTrack(), MoofOfDurations({0})), 0, 1000), (Times{0}));
}

/// Both ends of a fragment belong to it, and of the fragments that are parsed the last one that
/// reaches the start is taken, deliberately: what the one before has at its end is left out then.
TEST(FragmentRange, BeginsInTheLastParsedFragmentThatReachesItsStart) {
  OpenedReader reader(FileOf(OneTrack(), MoofOfDurations({10, 10, 0}) + MoofOfDurations({10, 0})));
  const auto timesFrom = [&reader](uint64_t start) {
    return TimeStamps(SamplesBetween(reader, 1000, start, 1000, 1000));
  };
  EXPECT_EQ(timesFrom(20), (Times{20, 20, 30}));  // Only now the second one is parsed.
  EXPECT_EQ(timesFrom(20), (Times{20, 30}));
  EXPECT_EQ(timesFrom(19), (Times{20, 20, 30}));
  EXPECT_EQ(timesFrom(30), (Times{30}));
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

}  // namespace
}  // namespace k7mtest
