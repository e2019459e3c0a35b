#include <gtest/gtest.h>

#include "fragment_expectations.h"

namespace k7mtest {
namespace {

const Bytes kOne{1, 2, 3};
const Bytes kTwo{4, 5};
const Bytes kThree{6, 7, 8, 9};
const Bytes kFour{10};

TEST(FragmentLayout, TheFirstBoxesHoldNoMvexUntilTheMovieBoxIsClosed) {
  OpenedWriter writer(FragmentedInfo());
  EXPECT_EQ(CodesIn(writer.File()), (std::vector<std::string>{"ftyp", "moov"}));
  EXPECT_EQ(CodesIn(writer.File(), "moov"), std::vector<std::string>{"mvhd"});
  writer.AddDescribedTrack();
  EXPECT_EQ(CodesIn(writer.File(), "moov"), (std::vector<std::string>{"mvhd", "trak"}));
  writer.Flush();
  EXPECT_EQ(CodesIn(writer.File(), "moov"), (std::vector<std::string>{"mvhd", "trak"}));
}

TEST(FragmentLayout, OneFragmentOfTwoTracks) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  writer.Add(video, {.time = 0, .data = kOne, .flags = kKey});
  writer.Add(video, {.time = 10, .data = kTwo, .compositionOffset = 7});
  writer.Add(audio, {.time = 0, .data = kThree, .flags = kKey});
  writer.Add(video, {.time = 25, .data = kFour, .compositionOffset = 0xFFFFFFFE});
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesIn(file, "moov"), (std::vector<std::string>{"mvhd", "trak", "trak", "mvex"}));
  EXPECT_EQ(FindBox(file, "moov/mvex"),
            Box("mvex", FullBox("mehd", 1, 0, Mehd{.duration = 26}),
                FullBox("trex", 0, 0, Trex{.trackId = 1, .sampleFlags = 1}),
                FullBox("trex", 0, 0, Trex{.trackId = 2, .sampleFlags = 1})));
  const Bytes mdat = LargeBox("mdat", kOne, kTwo, kThree, kFour);
  const uint64_t base = EndOfMoov(file) + 16;
  const uint64_t moofOffset = EndOfMoov(file) + mdat.Size();
  EXPECT_EQ(BehindMoov(file),
            mdat +
                ExpectedMoof(1,
                             ExpectedTraf(1, base,
                                          {{0, {{10, 3, kKeyInRun, 0}, {15, 2, kOtherInRun, 7}}},
                                           {9, {{1, 1, kOtherInRun, 0xFFFFFFFE}}}}),
                             ExpectedTraf(2, base, {{5, {{1, 4, kKeyInRun, 0}}}})) +
                ExpectedMfra(ExpectedTfra(1, {{0, moofOffset, 1, 2, 1}})));
}

TEST(FragmentLayout, EachFlushEndsAFragmentAndNumbersGoOn) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  writer.Add(video, {.time = 0, .data = kOne, .flags = kKey});
  writer.Flush();
  writer.Add(audio, {.time = 0, .data = kTwo});
  writer.Flush();
  writer.Flush();
  writer.Add(audio, {.time = 30, .data = kThree});
  writer.Add(video, {.time = 40, .data = kFour, .flags = kKey});
  const Bytes file = writer.Finish();
  const uint64_t first = EndOfMoov(file) + 16;
  const Bytes one = LargeBox("mdat", kOne) +
                    ExpectedMoof(1, ExpectedTraf(1, first, {{0, {{40, 3, kKeyInRun, 0}}}}));
  const uint64_t second = first + one.Size();
  const Bytes two = LargeBox("mdat", kTwo) +
                    ExpectedMoof(2, ExpectedTraf(2, second, {{0, {{30, 2, kOtherInRun, 0}}}}));
  const uint64_t third = second + two.Size();
  const Bytes lastMdat = LargeBox("mdat", kThree, kFour);
  // Track fragments are in the order of the tracks, whichever came first.
  const Bytes three =
      lastMdat + ExpectedMoof(3, ExpectedTraf(1, third, {{4, {{1, 1, kKeyInRun, 0}}}}),
                              ExpectedTraf(2, third, {{0, {{1, 4, kOtherInRun, 0}}}}));
  const uint64_t firstMoof = first + kOne.Size();
  const uint64_t thirdMoof = third - 16 + lastMdat.Size();
  EXPECT_EQ(BehindMoov(file),
            one + two + three +
                ExpectedMfra(ExpectedTfra(1, {{0, firstMoof, 1, 2, 1}, {40, thirdMoof, 1, 2, 1}})));
}

TEST(FragmentLayout, AnEmptyFileHoldsMvexAndAnEmptyTfraPerVideoTrack) {
  OpenedWriter writer(FragmentedInfo());
  writer.AddTrack({.mediaType = "soun"});
  writer.AddTrack();
  writer.AddTrack({.mediaType = "text"});
  writer.AddTrack();
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesIn(file, "moov/mvex"),
            (std::vector<std::string>{"mehd", "trex", "trex", "trex", "trex"}));
  EXPECT_EQ(FindBox(file, "moov/mvex/mehd"), FullBox("mehd", 1, 0, Mehd{}));
  EXPECT_EQ(BehindMoov(file), ExpectedMfra(ExpectedTfra(2, {}), ExpectedTfra(4, {})));
}

TEST(FragmentLayout, WithoutTracksTheIndexHoldsItsSizeOnly) {
  OpenedWriter writer(FragmentedInfo());
  const Bytes file = writer.Finish();
  EXPECT_EQ(FindBox(file, "moov/mvex"), Box("mvex", FullBox("mehd", 1, 0, Mehd{})));
  EXPECT_EQ(BehindMoov(file), ExpectedMfra());
}

TEST(FragmentLayout, TheTracksOfTheIndexAreCutTo8BitsOfTheirId) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* last = nullptr;
  for (int i = 0; i < 257; ++i) last = writer.AddTrack({.mediaType = i < 255 ? "soun" : "vide"});
  writer.Describe(last);
  writer.Add(last, {.time = 3000, .data = kOne, .flags = kKey});
  const Bytes file = writer.Finish();
  const Bytes mdat = LargeBox("mdat", kOne);
  const uint64_t moofOffset = EndOfMoov(file) + mdat.Size();
  // Only in the index, where an entry names the track in full. Its time keeps the gap.
  EXPECT_EQ(
      BehindMoov(file),
      mdat +
          ExpectedMoof(1, ExpectedTraf(257, EndOfMoov(file) + 16, {{0, {{1, 3, kKeyInRun, 0}}}})) +
          ExpectedMfra(ExpectedTfra(0, {}), ExpectedTfra(1, {{3000, moofOffset, 257, 2, 1}})));
}

TEST(FragmentLayout, TheIndexCountsRunsAndTheSamplesInThem) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* other = writer.AddDescribedTrack({.mediaType = "soun"});
  writer.Add(video, 0);
  writer.Add(video, 1, kKey);
  writer.Add(other, 0, kKey);
  writer.Add(video, 2, kKey);
  writer.Add(video, 3);
  writer.Add(video, 4, kKey);
  writer.Flush();
  writer.Add(video, 5, kKey);
  const Bytes file = writer.Finish();
  const uint64_t first = PlaceOf(file, "moof").offset;
  const uint64_t second = PlaceOf(file, "moof#2").offset;
  EXPECT_EQ(
      FindBox(file, "mfra"),
      ExpectedMfra(ExpectedTfra(
          1,
          {{1, first, 1, 2, 2}, {2, first, 1, 3, 1}, {4, first, 1, 3, 3}, {5, second, 1, 2, 1}})));
}

TEST(FragmentLayout, OnlyTheValue1OfTheLowByteMakesAKeySample) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  const std::vector<uint32_t> flags = {1, 0, 3, 0x0101, 0x0200, 0xFFFFFF01, 0xFF};
  for (size_t i = 0; i < flags.size(); ++i) writer.Add(video, i, flags[i]);
  const Bytes file = writer.Finish();
  for (size_t i = 0; i < flags.size(); ++i) {
    EXPECT_EQ(NumberIn(file, "moof/traf/trun", 20 + 16 * i + 8),
              (flags[i] & 0xFF) == 1 ? kKeyInRun : kOtherInRun)
        << flags[i];
  }
  EXPECT_EQ(NumberIn(file, "mfra/tfra", 20), 3u);
}

TEST(FragmentLayout, ExtraBoxesAndMetadataStandWhereTheyWereAdded) {
  OpenedWriter writer(FragmentedInfo());
  QiroK7MTrack* video = writer.AddDescribedTrack();
  ASSERT_EQ(writer.TryAddFullBox("aaaa", 0, 1, kOne), 0u);
  ASSERT_EQ(writer.TrySetUlb(kTwo), 0u);
  EXPECT_EQ(writer.TryAddTrack({}), 1281u);
  writer.Add(video, {.time = 0, .data = kThree});
  ASSERT_EQ(writer.TryAddFullBox("bbbb", 9, 0xAB000002, {}), 0u);
  ASSERT_EQ(writer.TryAddFullBox("cccc", 0, 0, kFour), 0u);
  EXPECT_EQ(writer.TrySetUlb(kTwo), 1282u);
  writer.Add(video, {.time = 5, .data = kFour});
  const Bytes file = writer.Finish();
  const Bytes before = FullBox("aaaa", 0, 1, kOne) + UuidBox(kMetadataUuid, kTwo);
  EXPECT_EQ(Cut(BehindMoov(file), before.Size()), before);
  const std::vector<std::string> codes = CodesIn(file);
  EXPECT_EQ(codes, (std::vector<std::string>{"ftyp", "moov", "aaaa", "uuid", "mdat", "moof", "bbbb",
                                             "cccc", "mdat", "moof", "mfra"}));
  EXPECT_EQ(FindBox(file, "bbbb"), FullBox("bbbb", 1, 2));
  EXPECT_EQ(FindBox(file, "cccc"), FullBox("cccc", 0, 0, kFour));
  EXPECT_EQ(NumberIn(file, "moof#2/mfhd", 12), 2u);
  EXPECT_EQ(NumberIn(file, "moof#2/traf/tfhd", 16, 8), PlaceOf(file, "mdat#2").offset + 16);
}

TEST(FragmentLayout, AnyNumberButZeroAsksForFragments) {
  QiroK7MDocInfo info = DocInfoOf(1000);
  info.isFragmented = 0x80000000;
  OpenedWriter writer(info);
  EXPECT_EQ(CodesIn(writer.Finish()), (std::vector<std::string>{"ftyp", "moov", "mfra"}));
}

}  // namespace
}  // namespace k7mtest
