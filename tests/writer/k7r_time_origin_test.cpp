// The time origin: where it is found, and which times count from it.
#include "writer/k7r_time_origin.h"

#include <gtest/gtest.h>

#include "k7r_expectations.h"

namespace k7mtest {
namespace {

uint32_t OriginIn(const Bytes& extension) {
  return qiro::k7m::impl::ReadVorpTimeOffset({extension.Data(), extension.Size()});
}

TEST(TimeOrigin, IsTheNumberOfTheFirstAmto) {
  EXPECT_EQ(OriginIn(VorpExtension(0)), 0u);
  EXPECT_EQ(OriginIn(VorpExtension(0xFEDCBA98)), 0xFEDCBA98u);
  EXPECT_EQ(OriginIn(Box("abcd") + Box("efgh", Pattern(7)) + VorpExtension(5) + VorpExtension(6)),
            5u);
  EXPECT_EQ(OriginIn(LyingBox("amto", 0, Bytes().U32(9))), 9u);  // Its size is not looked at.
}

TEST(TimeOrigin, IsZeroWithoutAnAmto) {
  EXPECT_EQ(OriginIn({}), 0u);
  EXPECT_EQ(OriginIn(Box("abcd", Pattern(30))), 0u);
  EXPECT_EQ(OriginIn(Box("abcd", VorpExtension(7))), 0u);  // Not inside another box.
}

TEST(TimeOrigin, BytesThatAreNoBoxesEndTheSearch) {
  const Bytes behind = VorpExtension(7);
  for (const uint32_t size : {0u, 1u, 7u}) {
    EXPECT_EQ(OriginIn(LyingBox("abcd", size) + behind), 0u) << size;
  }
  EXPECT_EQ(OriginIn(LyingBox("abcd", 0xFFFFFFFF) + behind), 0u);
  EXPECT_EQ(OriginIn(LyingBox("abcd", 8 + 13) + behind), 0u);
  for (size_t size = 0; size < behind.Size(); ++size) EXPECT_EQ(OriginIn(Cut(behind, size)), 0u);
}

TEST(TimeOrigin, TimesInRunsCountFromItAndTimesOfEntriesDoNot) {
  K7RSetup setup(500);
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  writer.Add(setup.video, {.time = 500, .flags = kKey}, true);
  writer.Add(setup.video, {.time = 540, .flags = kKey}, true);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "afra", 21, 8), 500u);
  EXPECT_EQ(NumberIn(file, "afra", 37, 8), 540u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 40u);
  // The track starts at 0: there is no gap in front of it.
  EXPECT_EQ(NumberIn(file, "moov/trak/edts/elst", 12), 1u);
  EXPECT_EQ(NumberIn(file, "moov/trak/mdia/mdhd", 32, 8), 41u);
}

TEST(TimeOrigin, IsInTheScaleOfTheHintTrackAndConvertedForEveryTrack) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack({.timeScale = 90000});
  writer.AddDescribedHintTrack({video}, 2000, 500);  // 4 seconds.
  writer.StartFragment();
  writer.Add(video, {.time = 4 * 90000, .flags = kKey}, true);
  writer.Add(video, {.time = 4100, .timeScale = 1000}, true);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, "afra", 13), 500u);
  EXPECT_EQ(NumberIn(file, "afra", 21, 8), 2000u);
  EXPECT_EQ(NumberIn(file, "afra", 37, 8), 2050u);
  EXPECT_EQ(DurationIn(file, 1, 1, 1, 1), 9000u);
  EXPECT_EQ(NumberIn(file, "moov/trak/edts/elst", 12), 1u);
}

TEST(TimeOrigin, ASampleBeforeItIs1280AlsoWhenItIsTheFirst) {
  K7RSetup setup(500);
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(setup.video, {.time = 499}), 1280u);
  EXPECT_EQ(writer.TryAdd(setup.video, {.time = 0, .flags = kGap}), 1280u);
  EXPECT_TRUE(writer.IsGood());
  writer.Add(setup.video, 500, kKey);
  EXPECT_EQ(writer.TryAdd(setup.video, {.time = 0}), 1280u);
  writer.Add(setup.video, 501);
  EXPECT_EQ(NumberIn(writer.Finish(), "moof/traf/trun", 12), 2u);
}

TEST(TimeOrigin, ALateFirstSampleLeavesAGapThatStartsAtTheOrigin) {
  K7RSetup setup(500);
  setup.writer.StartFragment();
  setup.writer.Add(setup.video, 1500, kKey);
  const Bytes file = setup.writer.Finish();
  EXPECT_EQ(FindBox(file, "moov/trak/edts/elst").Slice(12, 40), Bytes()
                                                                    .U32(3)
                                                                    .U32(0)
                                                                    .U32(0)
                                                                    .U32(0x10000)
                                                                    .U32(1000)
                                                                    .U32(0xFFFFFFFF)
                                                                    .U32(0x10000)
                                                                    .U32(1)
                                                                    .U32(0)
                                                                    .U32(0x10000));
}

TEST(TimeOrigin, IsNeededBeforeAnySample) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* hint = writer.AddHintTrack({video});
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(video, {}), 1290u);
  EXPECT_EQ(writer.TryAdd(hint, {}), 1290u);
  EXPECT_EQ(writer.TryAddHint(hint, video, {}, {0, 1}), 1290u);
  EXPECT_TRUE(writer.IsGood());
  writer.SetTimeOrigin(hint, 0);  // The entry's place was reserved; the movie box is closed.
  writer.Add(video, 0, kKey);
  EXPECT_EQ(NumberIn(writer.Finish(), "moof/traf/trun", 12), 1u);
}

TEST(TimeOrigin, OnlyAVorpDescriptionOfTheHintTrackSetsIt) {
  OpenedK7RWriter writer;
  QiroK7MTrack* text = writer.AddTrack({.mediaType = "text", .maxCodecHeaderLength = 100});
  QiroK7MTrack* hint = writer.AddHintTrack({text});
  EXPECT_EQ(writer.TryDescribe(text, "vorp", VorpExtension(3)), 0u);
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(text, {}), 1290u);
  EXPECT_EQ(writer.TryDescribe(hint, "amf0", VorpExtension(3)), 0u);
  EXPECT_EQ(writer.TryAdd(text, {}), 1290u);
}

TEST(TimeOrigin, AGenericVorpDescriptionSetsItToo) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack();
  QiroK7MTrack* hint = writer.AddHintTrack({video});
  EXPECT_EQ(writer.TryDescribe(hint, "vorp", VorpExtension(30)), 0u);
  writer.StartFragment();
  EXPECT_EQ(writer.TryAdd(video, {.time = 29}), 1280u);
  EXPECT_EQ(writer.TryAdd(video, {.time = 30}), 0u);
}

TEST(TimeOrigin, HoldsForSamplesAddedThroughThePlainHandleWithoutAnEntry) {
  K7RSetup setup(500);
  OpenedK7RWriter& writer = setup.writer;
  writer.StartFragment();
  CountedBuffer kept({1, 2, 3});
  QiroK7MSampleInfo info = NewSample{.time = 499, .flags = kKey}.Info(setup.video);
  EXPECT_EQ(QiroK7MWriterAddSample(writer.Handle(), setup.video, &info, kept.Record()), 1280u);
  EXPECT_EQ(kept.Releases(), 1);
  CountedBuffer second({1, 2, 3});
  info.timeStamp = 500;
  EXPECT_EQ(QiroK7MWriterAddSample(writer.Handle(), setup.video, &info, second.Record()), 0u);
  EXPECT_EQ(second.Releases(), 0);
  const Bytes file = writer.Finish();
  EXPECT_EQ(second.Releases(), 1);
  EXPECT_EQ(NumberIn(file, "afra", 17), 0u);
  EXPECT_EQ(NumberIn(file, "moov/trak/edts/elst", 12), 1u);
}

}  // namespace
}  // namespace k7mtest
