// What a sample's record tells, and where a track ends when its tables do.
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

// What a sample tells
// -------------------------------------------------------------------------------

TEST(SampleInfo, HasCompositionOffsetKeyAndDependency) {
  Track track{.samples = SomeSamples(3)};
  track.samples[0].compositionOffset = 20;
  track.samples[1].compositionOffset = 0xFFFFFFF6;
  track.samples[1].isSync = false;
  track.samples[0].dependency = 0xA5;
  track.samples[2].dependency = 0xFF;
  const auto samples = AllSamples(OpenedReader(BuildMovie(MovieOf(track)).bytes));
  EXPECT_EQ(Flags(samples), (std::vector<uint32_t>{0xA501, 0, 0xFF01}));
  EXPECT_EQ(samples[0].info.compositionOffset, 20u);
  EXPECT_EQ(samples[1].info.compositionOffset, 0xFFFFFFF6u);
  EXPECT_EQ(samples[2].info.compositionOffset, 0u);
}

TEST(SampleInfo, ATrackWithoutSyncTableHasNoKeySamples) {
  const auto samples =
      AllSamples(OpenedReader(BuildMovie(MovieOf({.samples = SomeSamples(3)})).bytes));
  EXPECT_EQ(Flags(samples), (std::vector<uint32_t>{0, 0, 0}));
}

TEST(SampleInfo, DependenciesArePositionedInTheMiddleOfATrack) {
  Track track{.samples = SomeSamples(6)};
  for (size_t i = 0; i < 6; ++i) track.samples[i].dependency = static_cast<uint8_t>(i + 1);
  track.samplesPerChunk = 3;
  const Bytes file = BuildMovie(MovieOf(track)).bytes;
  EXPECT_EQ(Flags(SamplesBetween(OpenedReader(file), 1000, 40, 1000, 50)),
            (std::vector<uint32_t>{0x500, 0x600}));
}

TEST(SampleInfo, AnUnorderedSyncTableIsSearchedFromItsStart) {
  Track track{.samples = SomeSamples(5)};
  track.replace["stss"] = FullBox("stss", 0, 0, Stss{.numbers = {4, 2, 5}});
  const Bytes file = BuildMovie(MovieOf(track)).bytes;
  // 4 is met first and 2 then blocks the table; from sample 5 on, 5 is found.
  EXPECT_EQ(Flags(AllSamples(OpenedReader(file))), (std::vector<uint32_t>{0, 0, 0, 1, 0}));
  EXPECT_EQ(Flags(SamplesBetween(OpenedReader(file), 1000, 40, 1000, 40)),
            std::vector<uint32_t>{1});
}

TEST(SampleInfo, ASyncSampleNamedTwiceHidesThoseBehindIt) {
  Track track{.samples = SomeSamples(6)};
  track.replace["stss"] = FullBox("stss", 0, 0, Stss{.numbers = {1, 3, 3, 5}});
  const Bytes file = BuildMovie(MovieOf(track)).bytes;
  // A key sample takes one entry of the table: the second 3 is never reached again.
  EXPECT_EQ(Flags(AllSamples(OpenedReader(file))), (std::vector<uint32_t>{1, 0, 1, 0, 0, 0}));
  EXPECT_EQ(Flags(MediaSamples(OpenedReader(file))), (std::vector<uint32_t>{1, 0, 1, 0, 0, 0}));
  // A search that starts behind it finds the 5.
  EXPECT_EQ(Flags(SamplesBetween(OpenedReader(file), 1000, 30, 1000, 50)),
            (std::vector<uint32_t>{0, 1, 0}));
}

TEST(SampleInfo, AShortCompositionTableGivesOffset0) {
  Track track{.samples = SomeSamples(4)};
  track.replace["ctts"] = FullBox("ctts", 0, 0, Ctts{.runs = {{2, 7}}});
  const auto samples = AllSamples(OpenedReader(BuildMovie(MovieOf(track)).bytes));
  ASSERT_EQ(samples.size(), 4u);
  EXPECT_EQ(samples[1].info.compositionOffset, 7u);
  EXPECT_EQ(samples[2].info.compositionOffset, 0u);
}

TEST(TableEnds, TheTrackEndsAfterTheLastSampleWithASize) {
  Track track{.samples = SomeSamples(4)};
  track.replace["stsz"] = FullBox("stsz", 0, 0, Stsz{.sizes = {5, 6}});
  track.edits = {{.segmentDuration = 40}, {.segmentDuration = 9, .mediaTime = -1}};
  EXPECT_EQ(TimesOf(MovieOf(track)), (Times{0, 10})) << "no gap follows";
}

TEST(TableEnds, AChunkWithoutAnOffsetEndsTheEdit) {
  Track track{.samples = SomeSamples(4)};
  track.chunkOffsets = [](const std::vector<uint64_t>& offsets) {
    return FullBox(
        "stco", 0, 0,
        Stco{.offsets = {static_cast<uint32_t>(offsets[0]), static_cast<uint32_t>(offsets[1])}});
  };
  track.edits = {{.segmentDuration = 40},
                 {.segmentDuration = 9, .mediaTime = -1},
                 {.segmentDuration = 20, .mediaTime = 0}};
  EXPECT_EQ(TimesOf(MovieOf(track)), (Times{0, 10, 40, 49, 59}));
}

TEST(TableEnds, ALastChunkRunWithoutSamplesEndsTheTrack) {
  Track track{.samples = SomeSamples(4)};
  track.replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, 1, 1}, {3, 0, 1}}});
  EXPECT_EQ(TimesOf(MovieOf(track)), (Times{0, 10}));
  track.replace["stsc"] = FullBox("stsc", 0, 0, Stsc{});
  EXPECT_EQ(TimesOf(MovieOf(track)), Times{}) << "no entry is one run without samples";
}

TEST(TableEnds, ChunkRunsWithoutSamplesAreSteppedOverWithTheirOffsets) {
  Track track{.samples = SomeSamples(4)};
  track.replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, 1, 1}, {2, 0, 1}, {3, 1, 1}}});
  // Samples 1, 2 and 3 lie in the chunks 1, 3 and 4.
  const auto samples = MediaSamples(OpenedReader(BuildMovie(MovieOf(track)).bytes));
  ASSERT_EQ(samples.size(), 3u);
  EXPECT_EQ(samples[0].data, track.samples[0].data);
  EXPECT_EQ(samples[1].data, Cut(track.samples[2].data, 6));
  EXPECT_EQ(samples[2].data, Cut(track.samples[3].data, 7));
}

TEST(TableEnds, ADescriptionIndexThatNamesNoneEndsTheTrackAfterItsSample) {
  for (const uint32_t index : {0u, 2u, 0xFFFFFFFFu}) {
    Track track{.samples = SomeSamples(4)};
    track.replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, 1, 1}, {3, 1, index}}});
    track.edits = {{.segmentDuration = 40}, {.segmentDuration = 9, .mediaTime = -1}};
    const auto samples = AllSamples(OpenedReader(BuildMovie(MovieOf(track)).bytes));
    ASSERT_EQ(samples.size(), 3u) << index;
    EXPECT_NE(samples[1].descriptor, nullptr);
    EXPECT_EQ(samples[2].descriptor, nullptr);
    EXPECT_EQ(samples[2].data, track.samples[2].data);
  }
}

TEST(TableEnds, AConstantSizeGivesExactlyAsManySamples) {
  Track track{.samples = std::vector<TestSample>(5, SampleOf(8))};
  track.hasConstantSize = true;
  EXPECT_EQ(AllSamples(OpenedReader(BuildMovie(MovieOf(track)).bytes)).size(), 5u);
  track.replace["stsz"] = FullBox("stsz", 0, 0, Stsz{8, {}, 3});
  EXPECT_EQ(AllSamples(OpenedReader(BuildMovie(MovieOf(track)).bytes)).size(), 3u);
}

}  // namespace
}  // namespace k7mtest
