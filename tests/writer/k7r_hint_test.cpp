// The hint track, its samples, and the media samples in them.
#include <gtest/gtest.h>

#include "k7r_expectations.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

using Strings = std::vector<std::string>;

NewTrack HintTrack() { return {.mediaType = "hint", .descriptorCount = 1, .flags = 0}; }

TEST(HintTrack, NamesTheTracksItServesInTheGivenOrder) {
  OpenedK7RWriter writer;
  QiroK7MTrack* first = writer.AddTrack();
  QiroK7MTrack* second = writer.AddTrack({.mediaType = "soun"});
  QiroK7MTrack* hint = nullptr;
  ASSERT_EQ(writer.TryAddHintTrack(HintTrack(), {second, first}, &hint), 0u);
  EXPECT_EQ(InfoOf(hint).mediaType, Code("hint"));
  const Bytes file = writer.Finish();
  EXPECT_EQ(FindBox(file, "moov/trak#3/tref"), Box("tref", Box("hint", Bytes().U32(2).U32(1))));
  EXPECT_EQ(CodesIn(file, "moov/trak#3"), (Strings{"tkhd", "tref", "mdia", "edts"}));
  EXPECT_EQ(NumberIn(file, "moov/trak#3/tkhd", 8), 0x01000000u);  // Version 1, flags 0.
  EXPECT_EQ(CodesIn(file, "moov/trak#3/mdia/minf").front(), "hmhd");
}

TEST(HintTrack, MayServeNone) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* hint = writer.AddDescribedHintTrack({});
  EXPECT_EQ(FindBox(writer.File(), "moov/trak#2/tref"), Box("tref", Box("hint")));
  writer.StartFragment();
  EXPECT_EQ(writer.TryAddHint(hint, video, {.data = {1, 2}}, {0, 1}), 1537u);
  EXPECT_TRUE(writer.IsGood());
}

TEST(HintTrack, ReservesTheVorpFieldsBeyondTheLongestCodecHeader) {
  for (const uint32_t length : {0u, 12u, 100u}) {
    OpenedK7RWriter writer;
    NewTrack track = HintTrack();
    track.maxCodecHeaderLength = length;
    QiroK7MTrack* hint = nullptr;
    ASSERT_EQ(writer.TryAddHintTrack(track, {}, &hint), 0u);
    EXPECT_EQ(FindBox(writer.File(), "moov/trak/mdia/minf/stbl/stsd").Size(), 16 + 16 + 6 + length);
    EXPECT_EQ(writer.TryAddVorp(hint, Pattern(length + 1)), 15u);
    EXPECT_EQ(writer.TryAddVorp(hint, Pattern(length)), 0u);
    EXPECT_EQ(writer.TryAddVorp(hint, {}), 1542u);
    EXPECT_TRUE(writer.IsGood());
    EXPECT_EQ(NumberIn(writer.File(), "moov/trak/mdia/minf/stbl/stsd", 20), Code("vorp"));
  }
}

TEST(HintTrack, AReservationThatWrapsIsRefused) {
  OpenedK7RWriter writer;
  NewTrack track = HintTrack();
  for (const uint32_t length : {0xFFFFFFFFu, 0xFFFFFFFAu}) {
    track.maxCodecHeaderLength = length;
    OpenedK7RWriter other;
    EXPECT_EQ(other.TryAddHintTrack(track, {}), 19u);
  }
}

TEST(HintTrack, ASecondOneIs1539HoweverItIsAdded) {
  OpenedK7RWriter writer;
  writer.AddHintTrack({});
  EXPECT_EQ(writer.TryAddHintTrack(HintTrack(), {}), 1539u);
  EXPECT_EQ(writer.TryAddTrack(HintTrack()), 1539u);
  EXPECT_TRUE(writer.IsGood());
  writer.AddTrack();
  EXPECT_EQ(CodesIn(writer.Finish(), "moov"), (Strings{"mvhd", "trak", "trak", "mvex"}));
}

TEST(HintTrack, TheFunctionForAllTracksAddsOneToo) {
  OpenedK7RWriter writer;
  NewTrack track = HintTrack();
  track.flags = 3;
  QiroK7MTrack* hint = nullptr;
  ASSERT_EQ(writer.TryAddTrack(track, &hint), 0u);
  EXPECT_EQ(writer.TryAddVorp(hint, VorpExtension(0)), 0u);
  EXPECT_EQ(writer.TryStartFragment(), 0u);
  EXPECT_EQ(NumberIn(writer.File(), "moov/trak/tkhd", 8), 0x01000003u);
}

TEST(HintTrack, OneThatFailedIsNoHintTrack) {
  OpenedK7RWriter writer;
  writer.Stream().FailNth(Call::kWrite, 1, 20);  // A code that leaves the writer good.
  EXPECT_EQ(writer.TryAddHintTrack(HintTrack(), {}), 20u);
  EXPECT_EQ(writer.TryStartFragment(), 1540u);
}

TEST(HintTrack, ItsRecordsAreChecked) {
  OpenedK7RWriter writer;
  NewTrack track = HintTrack();
  track.timeScale = 0;
  EXPECT_EQ(writer.TryAddHintTrack(track, {}, nullptr, 3), 10u);
  track = HintTrack();
  track.flags = 1;
  EXPECT_EQ(writer.TryAddHintTrack(track, {}, nullptr, 3), 1538u);
  for (const uint32_t protocol : {0u, 1u, 3u, 0x02000000u}) {
    EXPECT_EQ(writer.TryAddHintTrack(HintTrack(), {}, nullptr, protocol), 1284u);
  }
  track = HintTrack();
  track.mediaType = "vide";
  EXPECT_EQ(writer.TryAddHintTrack(track, {}), 8u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(CodesIn(writer.File(), "moov"), Strings{"mvhd"});
  EXPECT_EQ(writer.TryStartFragment(), 1540u);
  QiroK7MTrackInfo info = HintTrack().Info();
  info.mediaType = 0;
  const QiroK7MTrackEntriesInfo entries = HintTrack().Entries();
  const QiroK7RHintTrackInfo protocol{0, 2};
  QiroK7MTrack* hint = nullptr;
  ASSERT_EQ(QiroK7RWriterAddHintTrack(writer.K7R(), &protocol, &info, &entries, 0, "12345678",
                                      nullptr, 0, &hint),
            0u);
  EXPECT_EQ(InfoOf(hint).mediaType, Code("hint"));
}

TEST(HintTrack, IsRefusedOnceTheMovieBoxIsClosed) {
  OpenedK7RWriter writer;
  ASSERT_EQ(writer.TryAddFullBox("abcd", 0, 0, {}), 0u);
  EXPECT_EQ(writer.TryAddHintTrack(HintTrack(), {}), 1281u);
  EXPECT_EQ(writer.TryStartFragment(), 1540u);
  EXPECT_TRUE(writer.IsGood());
}

TEST(HintSample, MediaPointsIntoItsBytesWhichAreStoredOnce) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  const uint64_t start = writer.StartFragment();
  const Bytes message = Pattern(100);
  writer.AddHint(setup.hint, setup.video,
                 {.time = 0, .data = message, .flags = kKey, .compositionOffset = 9}, {11, 50},
                 true);
  const Bytes file = writer.Finish();
  const Bytes moof = ExpectedMoof(
      1, ExpectedTraf(1, PlaceOf(file, "mdat").offset + 16, {{11, {{1, 50, kKeyInRun, 9}}}}),
      ExpectedTraf(2, PlaceOf(file, "mdat").offset + 16, {{0, {{1, 100, kKeyInRun, 9}}}}));
  EXPECT_EQ(BehindMoov(file), ExpectedAfra(1000, {{0, PlaceOf(file, "mdat").offset + 16 - start}}) +
                                  moof + LargeBox("mdat", message));
  OpenedReader reader(file);
  EXPECT_EQ(Data(MediaSamples(reader, reader.TrackAt(0))),
            std::vector<Bytes>{message.Slice(11, 50)});
  EXPECT_EQ(Data(MediaSamples(reader, reader.TrackAt(1))), std::vector<Bytes>{message});
}

TEST(HintSample, EveryMediaSampleIsARunOfItsOwnUnlessTheBytesFollow) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.AddHint(setup.hint, setup.video, {.time = 0, .data = Pattern(10)}, {2, 5});
  writer.AddHint(setup.hint, setup.video, {.time = 10, .data = Pattern(10, 1)}, {2, 8});
  writer.AddHint(setup.hint, setup.video, {.time = 20, .data = Pattern(10, 2)}, {0, 10});
  const Bytes file = writer.Finish();
  const uint64_t base = PlaceOf(file, "mdat").offset + 16;
  EXPECT_EQ(FindBox(file, "moof/traf"),
            ExpectedTraf(1, base,
                         {{2, {{10, 5, kOtherInRun, 0}}},
                          {12, {{10, 8, kOtherInRun, 0}, {1, 10, kOtherInRun, 0}}}}));
  EXPECT_EQ(
      FindBox(file, "moof/traf#2"),
      ExpectedTraf(
          2, base,
          {{0, {{10, 10, kOtherInRun, 0}, {10, 10, kOtherInRun, 0}, {1, 10, kOtherInRun, 0}}}}));
}

TEST(HintSample, TimesAreConvertedForEachTrack) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack({.timeScale = 90000});
  QiroK7MTrack* hint = writer.AddDescribedHintTrack({video}, 1000);
  writer.StartFragment();
  const Bytes message = Pattern(10);
  writer.AddHint(hint, video, {.time = 1000, .data = message, .compositionOffset = 40}, {0, 10});
  writer.AddHint(hint, video, {.time = 1020, .data = message, .compositionOffset = 0}, {0, 10});
  const Bytes file = writer.Finish();
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 1800u);
  EXPECT_EQ(NumberIn(file, "moof/traf/trun", 32), 3600u);
  EXPECT_EQ(DurationIn(file, 1, 2, 1, 1), 20u);
  EXPECT_EQ(NumberIn(file, "moof/traf#2/trun", 32), 40u);
}

TEST(HintSample, MayCarryMediaOfLengthZero) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.AddHint(setup.hint, setup.video, {.data = Pattern(10)}, {10, 0});
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "moof/traf/trun", 24), 0u);
  EXPECT_EQ(FindBox(file, "mdat").Size(), 16u + 10u);
}

TEST(HintSample, MediaOutsideItsBytesIs20AndNothingIsCounted) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  const NewSample sample{.data = Pattern(10)};
  for (const MediaInHint where :
       {MediaInHint{0, 11}, {10, 1}, {11, 0}, {1, 0xFFFFFFFF}, {0xFFFFFFFF, 0xFFFFFFFF}}) {
    EXPECT_EQ(writer.TryAddHint(setup.hint, setup.video, sample, where), 20u);
  }
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(CodesBehindMoov(writer.Finish()), Strings{"afra"});
}

TEST(HintSample, OfAnotherMediaTypeOrEmptyIsRefused) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  const QiroK7MHintSampleInfo where{12, 0, 0};
  QiroK7MSampleInfo info = NewSample{}.Info(setup.video);
  CountedBuffer first({1, 2, 3});
  EXPECT_EQ(QiroK7RWriterAddHintSample(writer.K7R(), setup.hint, setup.video, first.Record(), &info,
                                       &where, 0),
            8u);
  EXPECT_EQ(first.Releases(), 1);
  EXPECT_EQ(writer.TryAddHint(setup.hint, setup.video, {.data = {}}, {}), 11u);
  info = NewSample{.data = Pattern(4)}.Info(setup.hint);
  CountedBuffer second({1, 2, 3});
  EXPECT_EQ(QiroK7RWriterAddHintSample(writer.K7R(), setup.hint, setup.video, second.Record(),
                                       &info, &where, 0),
            1030u);
  EXPECT_EQ(second.Releases(), 1);
  info.sampleSize = 3;
  info.timeScale = 0;
  CountedBuffer third({1, 2, 3});
  EXPECT_EQ(QiroK7RWriterAddHintSample(writer.K7R(), setup.hint, setup.video, third.Record(), &info,
                                       &where, 0),
            10u);
  EXPECT_EQ(third.Releases(), 1);
  EXPECT_TRUE(writer.IsGood());
}

TEST(HintSample, ForATrackThatIsNotServedIs1537) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  QiroK7MTrack* hint = writer.AddDescribedHintTrack({video});
  writer.StartFragment();
  EXPECT_EQ(writer.TryAddHint(hint, audio, {}, {0, 1}), 1537u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(writer.TryAddHint(hint, video, {}, {0, 1}), 0u);
}

TEST(HintSample, AnyTrackServesAnotherIfItIsNoHintTrack) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun"});
  writer.AddDescribedHintTrack({});
  writer.StartFragment();
  EXPECT_EQ(writer.TryAddHint(video, audio, {.data = Pattern(10)}, {3, 4}), 0u);
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesIn(file, "moof"), (Strings{"mfhd", "traf", "traf"}));
  OpenedReader reader(file);
  EXPECT_EQ(Data(MediaSamples(reader, reader.TrackAt(1))),
            std::vector<Bytes>{Pattern(10).Slice(3, 4)});
}

TEST(HintSample, StaysWithItsEntryWhenTheMediaSampleIsRefused) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddTrack();  // Without a description.
  QiroK7MTrack* hint = writer.AddDescribedHintTrack({video});
  writer.StartFragment();
  EXPECT_EQ(writer.TryAddHint(hint, video, {.data = Pattern(10)}, {0, 10}, true), 1289u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(writer.Releases(0), 0);
  const Bytes file = writer.Finish();
  EXPECT_EQ(CodesIn(file, "moof"), (Strings{"mfhd", "traf"}));
  EXPECT_EQ(NumberIn(file, "moof/traf/tfhd", 12), 2u);
  EXPECT_EQ(NumberIn(file, "afra", 17), 1u);
}

TEST(HintSample, AGapIsAGapOfBothTracks) {
  K7RSetup setup;
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.AddHint(setup.hint, setup.video, {.time = 0, .data = Pattern(4)}, {0, 4}, true);
  const QiroK7MSampleInfo gap = NewSample{.time = 10, .flags = kGap}.Info(setup.hint);
  const QiroK7MHintSampleInfo nowhere{12, 0, 0};
  EXPECT_EQ(
      QiroK7RWriterAddHintSample(writer.K7R(), setup.hint, setup.video, nullptr, &gap, &nowhere, 1),
      0u);
  writer.AddHint(setup.hint, setup.video, {.time = 50, .data = Pattern(4)}, {0, 4}, true);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "afra", 17), 2u);
  for (const char* elst : {"moov/trak/edts/elst", "moov/trak#2/edts/elst"}) {
    ASSERT_EQ(NumberIn(file, elst, 12), 3u);
    EXPECT_EQ(NumberIn(file, elst, 28), 40u);
    EXPECT_EQ(NumberIn(file, elst, 32), 0xFFFFFFFFu);
  }
}

TEST(HintSample, TheHintTrackEndsWithTheLastTrackThatItServes) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* audio = writer.AddDescribedTrack({.mediaType = "soun", .timeScale = 500});
  QiroK7MTrack* unserved = writer.AddDescribedTrack({.mediaType = "text"});
  QiroK7MTrack* hint = writer.AddDescribedHintTrack({video, audio});
  writer.StartFragment();
  writer.AddHint(hint, video, {.time = 0, .data = Pattern(4)}, {0, 4});
  writer.AddHint(hint, video, {.time = 20, .data = Pattern(4)}, {0, 4});
  writer.Add(audio, 50);
  writer.Add(unserved, 900);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "moov/trak#4/mdia/mdhd", 32, 8), 102u);  // (50 + 1) / 500 seconds.
  EXPECT_EQ(NumberIn(file, "moov/trak#4/tkhd", 36, 8), 102u);
  EXPECT_EQ(NumberIn(file, "moov/trak#4/edts/elst", 16), 102u);
  EXPECT_EQ(DurationIn(file, 1, 4, 1, 2), 82u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 2), 1u);
}

}  // namespace
}  // namespace k7mtest
