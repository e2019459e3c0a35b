// Fragmented documents opened with options: base offsets by the standard's rule, start times from
// the file.
#include <gtest/gtest.h>

#include "support/fragment_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

using Times = std::vector<uint64_t>;
using Offsets = std::vector<int64_t>;

constexpr ReadFlags kNoRules{0};
constexpr ReadFlags kBaseOffsets{kQiroK7MReadBaseDataOffsets};
constexpr ReadFlags kStartTimes{kQiroK7MReadStartTimes};
constexpr ReadFlags kBoth{kQiroK7MReadBaseDataOffsets | kQiroK7MReadStartTimes};
constexpr Trex kDefaults = {.duration = 10, .size = 4};

// Base offsets
// ---------------------------------------------------------------------------------------

Movie ThreeTracks() {
  return FragmentedMovie(
      {{.duration = 1000}, {.handler = "soun", .duration = 1000}, {.handler = "text"}}, kDefaults);
}

/// Every four bytes tell where in the pattern they stand.
Bytes Numbered(size_t count) {
  Bytes bytes;
  for (size_t i = 0; i < count; ++i) bytes.U32(i);
  return bytes;
}

/// Where each sample's bytes lie behind the begin of the fragment, in words; -1 for unreadable
/// ones.
Offsets PlacesOf(const Bytes& moof, ReadFlags flags, const Bytes& before = {}) {
  Movie movie = ThreeTracks();
  const Bytes media = Numbered(100);
  // The box is 'moof' and media at once: what lies behind its begin is its own bytes, then numbers.
  movie.atEnd = before + moof + Box("mdat", media);
  OpenedReader reader(BuildMovie(movie).bytes, flags);
  EXPECT_EQ(reader.Result(), 0u);
  Offsets places;
  for (QiroK7MTrack* track : reader.Tracks()) {
    for (const ReadSample& sample : MediaSamples(reader, track)) {
      const bool isNumber = sample.dataResult == 0 && sample.data.NumberAt(0) < media.Size();
      places.push_back(isNumber ? static_cast<int64_t>(sample.data.NumberAt(0)) : -1);
    }
  }
  return places;
}

Bytes RunAt(size_t word, uint32_t count, size_t moofSize) {
  const auto offset = static_cast<int32_t>(moofSize + 8 + 4 * word);
  return FullBox("trun", 0, kTrunOffset, Trun{.dataOffset = offset, .count = count});
}

/// A 'moof' whose size is given to whoever makes it.
template <class Make>
Bytes Sized(Make make) {
  return make(make(0).Size());
}

TEST(BaseOffsets, OfTheFirstTrafAreCountedFromTheMoof) {
  const Bytes moof = Sized(
      [](size_t size) { return Moof(Traf(0, Tfhd{}, RunAt(0, 2, size), RunAt(7, 1, size))); });
  EXPECT_EQ(PlacesOf(moof, kBaseOffsets), (Offsets{0, 1, 7}));
  EXPECT_EQ(PlacesOf(moof, kBaseOffsets, Box("free", Bytes().Fill(5))), (Offsets{0, 1, 7}));
  EXPECT_EQ(PlacesOf(moof, kStartTimes), (Offsets{-1, -1, -1}));
}

TEST(BaseOffsets, OfALaterTrafAreCountedFromTheEndOfTheDataBefore) {
  const Bytes moof = Sized([](size_t size) {
    const auto relative = FullBox("trun", 0, kTrunOffset, Trun{.dataOffset = 8, .count = 1});
    return Moof(Traf(0, Tfhd{}, RunAt(3, 2, size)), Traf(0, Tfhd{.trackId = 2}, DefaultRun(2)),
                Traf(0, Tfhd{.trackId = 3}, relative));
  });
  EXPECT_EQ(PlacesOf(moof, kBaseOffsets), (Offsets{3, 4, 5, 6, 9}));
}

TEST(BaseOffsets, OfEveryTrafAreCountedFromTheMoofWhereItSaysSo) {
  const Bytes moof = Sized([](size_t size) {
    return Moof(Traf(kTfhdBaseIsMoof, Tfhd{}, RunAt(3, 2, size)),
                Traf(kTfhdBaseIsMoof, Tfhd{.trackId = 2}, RunAt(1, 2, size)));
  });
  EXPECT_EQ(PlacesOf(moof, kBaseOffsets), (Offsets{3, 4, 1, 2}));
}

TEST(BaseOffsets, ThatAreGivenComeFirst) {
  Movie movie = ThreeTracks();
  const uint64_t mdat = BuildMovie(movie).bytes.Size();
  const Bytes traf =
      Traf(kTfhdBase | kTfhdBaseIsMoof, Tfhd{.baseDataOffset = mdat + 8}, DefaultRun(2));
  movie.atEnd = Box("mdat", Numbered(9)) + Moof(traf, Traf(0, Tfhd{.trackId = 2}, DefaultRun(1)));
  OpenedReader reader(BuildMovie(movie).bytes, kBaseOffsets);
  const auto samples = MediaSamples(reader);
  ASSERT_EQ(samples.size(), 3u);
  EXPECT_EQ(samples[0].data, Bytes().U32(0));
  // The second track's follow the data of the first one's.
  EXPECT_EQ(samples[1].info.mediaType, Code("soun"));
  EXPECT_EQ(samples[1].data, Bytes().U32(2));
  EXPECT_EQ(samples[2].data, Bytes().U32(1));
}

TEST(BaseOffsets, ARunWithoutAnOffsetFollowsTheOneBefore) {
  const Bytes moof = Sized([](size_t size) {
    return Moof(
        Traf(0, Tfhd{}, RunAt(2, 2, size), DefaultRun(1), RunAt(9, 1, size), DefaultRun(1)));
  });
  EXPECT_EQ(PlacesOf(moof, kBaseOffsets), (Offsets{2, 3, 4, 9, 10}));
}

TEST(BaseOffsets, EmptyTrafsAndRunsMoveNothing) {
  const Bytes moof = Sized([](size_t size) {
    return Moof(Traf(0, Tfhd{.trackId = 3}), Traf(0, Tfhd{}, RunAt(2, 2, size), DefaultRun(0)),
                Traf(0, Tfhd{.trackId = 2}, DefaultRun(0), DefaultRun(1)));
  });
  EXPECT_EQ(PlacesOf(moof, kBaseOffsets), (Offsets{2, 3, 4}));
}

// Start times
// -----------------------------------------------------------------------------------------

Bytes TrafAt(uint64_t time, uint32_t count, uint8_t version = 1) {
  return Traf(0, Tfhd{}, FullBox("tfdt", version, 0, Tfdt{.time = time}), DefaultRun(count));
}

Bytes FileOf(const Bytes& fragments, uint64_t duration = 10000) {
  Movie movie = FragmentedMovie({{.duration = duration}}, kDefaults);
  movie.atEnd = fragments;
  return BuildMovie(movie).bytes;
}

Times TimesBetween(const Bytes& file, uint64_t start, uint64_t end) {
  OpenedReader reader(file, kStartTimes);
  return TimeStamps(SamplesBetween(reader, 1000, start, 1000, end));
}

TEST(StartTimes, ComeFromTheTfdt) {
  const Bytes file = FileOf(Moof(TrafAt(100, 2)) + Moof(TrafAt(500, 2)));
  EXPECT_EQ(TimeStamps(MediaSamples(OpenedReader(file, kStartTimes))), (Times{100, 110, 500, 510}));
  EXPECT_EQ(TimeStamps(MediaSamples(OpenedReader(file, kBaseOffsets))), (Times{0, 10, 20, 30}));
}

TEST(StartTimes, RunOnWhereThereIsNoTfdt) {
  const Bytes without = Traf(0, Tfhd{}, DefaultRun(1));
  const Bytes file = FileOf(Moof(without) + Moof(TrafAt(100, 2), without) + Moof(without));
  EXPECT_EQ(TimeStamps(MediaSamples(OpenedReader(file, kStartTimes))),
            (Times{0, 100, 110, 120, 130}));
}

TEST(StartTimes, HaveTheWidthOfTheirVersion) {
  const uint64_t large = 0x123456789;
  const auto first = [](const Bytes& file) {
    return MediaSamples(OpenedReader(file, kStartTimes)).at(0).info.timeStamp;
  };
  EXPECT_EQ(first(FileOf(Moof(TrafAt(large, 1, 1)))), large);
  EXPECT_EQ(first(FileOf(Moof(TrafAt(0xFFFFFFFF, 1, 0)))), 0xFFFFFFFFu);
  const Bytes odd = FullBox("tfdt", 2, 0, Bytes().U32(77));
  EXPECT_EQ(first(FileOf(Moof(Traf(0, Tfhd{}, odd, DefaultRun(1))))), 77u);
  // In its other forms of header, and behind the runs.
  const Bytes payload = Bytes().U32(0x01000000).U64(99);
  EXPECT_EQ(first(FileOf(Moof(Traf(0, Tfhd{}, LargeBox("tfdt", payload), DefaultRun(1))))), 99u);
  EXPECT_EQ(first(FileOf(Moof(Traf(0, Tfhd{}, DefaultRun(1), BoxAsUuid("tfdt", payload))))), 99u);
}

TEST(StartTimes, OfSeveralTfdtTheFirstCounts) {
  const Bytes two = FullBox("tfdt", 0, 0, Tfdt{.time = 5}) + FullBox("tfdt", 0, 0, Tfdt{.time = 6});
  const Bytes file = FileOf(Moof(Traf(0, Tfhd{}, two, DefaultRun(1))));
  EXPECT_EQ(TimeStamps(MediaSamples(OpenedReader(file, kStartTimes))), (Times{5}));
}

TEST(StartTimes, ATruncatedTfdtIsItsErrorWhereItIsAskedFor) {
  const auto error = [](const Bytes& tfdt, ReadFlags flags) {
    OpenedReader reader(FileOf(Moof(Traf(0, Tfhd{}, tfdt, DefaultRun(1)))), flags);
    QiroK7MSampleIterator* iterator = nullptr;
    const QiroK7MError result =
        QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator);
    QiroK7MReleaseSampleIterator(iterator);
    return result;
  };
  for (const Bytes& tfdt : {Box("tfdt"), Box("tfdt", Bytes().Fill(3))}) {
    EXPECT_EQ(error(tfdt, kStartTimes), kQiroK7MErrorBadFullBoxHeader);
    EXPECT_EQ(error(tfdt, kBaseOffsets), 0u);
  }
  for (const Bytes& tfdt :
       {FullBox("tfdt", 0, 0, Bytes().Fill(3)), FullBox("tfdt", 1, 0, Bytes().Fill(7))}) {
    EXPECT_EQ(error(tfdt, kStartTimes), kQiroK7MErrorBoxTruncated);
    EXPECT_EQ(error(tfdt, kNoRules), 0u);
  }
}

TEST(StartTimes, ARangeMayStartInAHole) {
  const Bytes file = FileOf(Moof(TrafAt(100, 2)) + Moof(TrafAt(500, 2)));
  EXPECT_EQ(TimesBetween(file, 0, 1000), (Times{100, 110, 500, 510}));
  EXPECT_EQ(TimesBetween(file, 105, 1000), (Times{110, 500, 510}));
  EXPECT_EQ(TimesBetween(file, 115, 1000), (Times{500, 510}));
  EXPECT_EQ(TimesBetween(file, 120, 1000), (Times{500, 510}));
  EXPECT_EQ(TimesBetween(file, 300, 510), (Times{500}));
  EXPECT_EQ(TimesBetween(file, 300, 400), (Times{}));
  EXPECT_EQ(TimesBetween(file, 520, 1000), (Times{}));
  // Without the rule no fragment covers such a start.
  OpenedReader plain(file);
  EXPECT_EQ(TimeStamps(SamplesBetween(plain, 1000, 300, 1000, 1000)), (Times{}));
}

TEST(StartTimes, KeepTheirHolesInAnEdit) {
  Movie movie = FragmentedMovie({{.edits = {{50, -1}, {1000, 105}}}}, kDefaults);
  movie.atEnd = Moof(TrafAt(100, 2)) + Moof(TrafAt(500, 1));
  OpenedReader reader(BuildMovie(movie).bytes, kStartTimes);
  EXPECT_EQ(TimeStamps(AllSamples(reader)), (Times{0, 55, 445}));
}

// Both, and none
// --------------------------------------------------------------------------------------

TEST(ReadOptions, WithoutFlagsAreThePlainOpen) {
  const Bytes file = FileOf(Moof(TrafAt(100, 2)) + Moof(TrafAt(500, 2)));
  OpenedReader plain(file);
  OpenedReader none(file, kNoRules);
  OpenedReader unknown(file, ReadFlags{0xFFFFFFFC});
  const auto expected = AllSamples(plain);
  EXPECT_EQ(TimeStamps(expected), (Times{0, 10, 20, 30}));
  EXPECT_EQ(TimeStamps(AllSamples(none)), TimeStamps(expected));
  EXPECT_EQ(TimeStamps(AllSamples(unknown)), TimeStamps(expected));
}

TEST(ReadOptions, GoTogether) {
  Movie movie = FragmentedMovie({{.duration = 10000}}, kDefaults);
  const auto make = [](size_t size) {
    return Moof(Traf(0, Tfhd{}, FullBox("tfdt", 1, 0, Tfdt{.time = 70}), RunAt(0, 2, size)));
  };
  movie.atEnd = Sized(make) + Box("mdat", Numbered(2));
  OpenedReader reader(BuildMovie(movie).bytes, kBoth);
  const auto samples = AllSamples(reader);
  EXPECT_EQ(TimeStamps(samples), (Times{70, 80}));
  EXPECT_EQ(Data(samples), (std::vector<Bytes>{Bytes().U32(0), Bytes().U32(1)}));
}

}  // namespace
}  // namespace k7mtest
