#include <gtest/gtest.h>

#include "description_records.h"

namespace k7mtest {
namespace {

TEST(Descriptions, MustBeOfTheTracksMediaType) {
  OpenedWriter writer;
  QiroK7MTrack* video = writer.AddTrack({.mediaType = "vide"});
  QiroK7MTrack* sound = writer.AddTrack({.mediaType = "soun"});
  const Bytes before = writer.File();
  const auto videoInfo = VideoRecord();
  const auto audioInfo = AudioRecord();
  const auto vorpInfo = VorpRecord();
  QiroK7MSampleDescInfo generic{};
  generic.type = Code("avc1");
  generic.mediaType = Code("soun");
  auto* const w = writer.Handle();
  EXPECT_EQ(AddWith(&QiroK7MWriterAddVideoSampleDescriptor, w, sound, {}, &videoInfo), 8u);
  EXPECT_EQ(AddWith(&QiroK7MWriterAddVideoSampleDescriptorWithType, w, sound, {}, Code("avc1"),
                    &videoInfo),
            8u);
  EXPECT_EQ(AddWith(&QiroK7MWriterAddAudioSampleDescriptor, w, video, {}, &audioInfo), 8u);
  EXPECT_EQ(AddWith(&QiroK7MWriterAddAudioSampleDescriptorWithType, w, video, {}, Code("mp4a"),
                    &audioInfo),
            8u);
  EXPECT_EQ(AddWith(&QiroK7MWriterAddVorpSampleDescriptor, w, video, {}, &vorpInfo), 8u);
  EXPECT_EQ(AddWith(&QiroK7MWriterAddSampleDescriptor, w, video, {}, &generic), 8u);
  EXPECT_EQ(writer.File(), before);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(AddWith(&QiroK7MWriterAddSampleDescriptor, w, sound, {}, &generic), 0u);
}

TEST(Descriptions, ChecksComeInOrderAndTheBufferIsAlwaysGivenBack) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack({.mediaType = "soun"});
  const auto info = VideoRecord();
  QiroK7MSampleDescriptor* out = nullptr;
  const auto add = [&](QiroK7MWriter* w, QiroK7MTrack* t, const QiroK7MVideoSampleDescInfo* i,
                       QiroK7MSampleDescriptor** o) {
    CountedBuffer buffer(Pattern(500));
    const QiroK7MError result = QiroK7MWriterAddVideoSampleDescriptor(w, t, i, buffer.Record(), o);
    EXPECT_EQ(buffer.Releases(), 1);
    return result;
  };
  EXPECT_EQ(add(nullptr, track, &info, &out), 20u);
  EXPECT_EQ(add(writer.Handle(), nullptr, &info, &out), 20u);
  EXPECT_EQ(add(writer.Handle(), track, nullptr, &out), 20u);
  EXPECT_EQ(add(writer.Handle(), track, &info, nullptr), 20u);
  EXPECT_EQ(QiroK7MWriterAddVideoSampleDescriptor(writer.Handle(), track, &info, nullptr, &out),
            20u);
  EXPECT_EQ(add(writer.Handle(), track, &info, &out), 8u);  // Before 15.
  writer.Finish();
  EXPECT_EQ(add(writer.Handle(), track, &info, &out), 48u);  // Before 8.
  EXPECT_EQ(add(writer.Handle(), track, nullptr, &out), 20u);
  EXPECT_EQ(out, nullptr);
}

TEST(Descriptions, OneMoreThanReservedIsRefusedAndTheWriterStaysGood) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack({.descriptorCount = 1});
  writer.Describe(track, "avc1", Pattern(32));
  const Bytes before = writer.File();
  EXPECT_EQ(writer.TryDescribe(track, "avc1", {}), 15u);
  EXPECT_EQ(writer.File(), before);
  EXPECT_TRUE(writer.IsGood());
  writer.Add(track, 0);  // The first description is still current.
  EXPECT_EQ(NumberIn(writer.Finish(), "moov/trak/mdia/minf/stbl/stsc", 24), 1u);
}

TEST(Descriptions, WithoutReservedSpaceNoneCanBeAdded) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack({.mediaType = "text", .descriptorCount = 0});
  EXPECT_EQ(FindBox(writer.File(), kStsd), FullBox("stsd", 0, 0, Stsd{}));
  EXPECT_EQ(writer.TryDescribe(track, "tx3g", {}), 15u);
}

TEST(Descriptions, SmallEntriesMayBeMoreThanAnnounced) {
  const NewTrack setup{.mediaType = "text", .descriptorCount = 1, .maxCodecHeaderLength = 32};
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack(setup);
  for (int i = 0; i < 3; ++i) writer.Describe(track, "tx3g");
  EXPECT_EQ(writer.TryDescribe(track, "tx3g", {}), 15u);
  const Bytes entry = OtherEntry("tx3g");
  EXPECT_EQ(FindBox(writer.File(), kStsd), ExpectedStsd(setup, {entry, entry, entry}));
}

TEST(Descriptions, AVorpEntryMustBeTheFirst) {
  OpenedWriter writer;
  QiroK7MTrack* hint = writer.AddTrack({.mediaType = "hint", .descriptorCount = 5});
  writer.Describe(hint, "amf0");
  EXPECT_EQ(writer.TryDescribe(hint, "vorp", {}), 1542u);
  EXPECT_EQ(writer.TryDescribe(hint, "vorp", Pattern(500)), 1542u);  // Before 15.
  EXPECT_TRUE(writer.IsGood());
  QiroK7MTrack* other = writer.AddTrack({.mediaType = "hint", .descriptorCount = 5});
  writer.Describe(other, "vorp");
  EXPECT_EQ(writer.TryDescribe(other, "vorp", {}), 1542u);
  writer.Describe(other, "amf0");  // Only a 'vorp' is refused.
}

TEST(Descriptions, CanBeAddedAfterSamples) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddDescribedTrack();
  writer.Add(track, 0);
  writer.Describe(track, "avc1", Pattern(3));
  writer.Add(track, 10);
  const Bytes file = writer.Finish();
  EXPECT_EQ(NumberIn(file, kStsd, 12), 2u);
  EXPECT_EQ(NumberIn(file, "moov/trak/mdia/minf/stbl/stsc", 12), 2u);
}

TEST(Descriptions, AnEarlierOneCanBeMadeCurrentAgain) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack();
  QiroK7MSampleDescriptor* first = writer.Describe(track);
  writer.Describe(track, "avc1", Pattern(3));
  ASSERT_EQ(QiroK7MWriterSetSampleDescriptor(writer.Handle(), track, first), 0u);
  writer.Add(track, 0);
  const Bytes stsc = FindBox(writer.Finish(), "moov/trak/mdia/minf/stbl/stsc");
  EXPECT_EQ(stsc, PaddedTo(stsc.Size(), FullBox("stsc", 0, 0, Stsc{{{1, 1, 1}}})));
}

TEST(Descriptions, OnlyThePlaceOfADescriptionMatters) {
  OpenedWriter writer;
  QiroK7MTrack* a = writer.AddTrack();
  QiroK7MTrack* b = writer.AddTrack();
  writer.Describe(a);
  QiroK7MSampleDescriptor* second = writer.Describe(a, "avc1", Pattern(3));
  ASSERT_EQ(QiroK7MWriterSetSampleDescriptor(writer.Handle(), b, second), 0u);
  writer.Add(b, 0);
  EXPECT_EQ(NumberIn(writer.Finish(), "moov/trak#2/mdia/minf/stbl/stsc", 24), 2u);
}

TEST(Descriptions, ChoosingOneForAnUnknownTrackIs1283) {
  OpenedWriter small;
  OpenedWriter large;
  QiroK7MTrack* track = small.AddTrack();
  QiroK7MSampleDescriptor* descriptor = small.Describe(track);
  large.AddTrack();
  QiroK7MTrack* second = large.AddTrack();
  EXPECT_EQ(QiroK7MWriterSetSampleDescriptor(small.Handle(), second, descriptor), 1283u);
  EXPECT_TRUE(small.IsGood());
  EXPECT_EQ(QiroK7MWriterSetSampleDescriptor(nullptr, second, descriptor), 20u);
  EXPECT_EQ(QiroK7MWriterSetSampleDescriptor(small.Handle(), nullptr, descriptor), 20u);
  EXPECT_EQ(QiroK7MWriterSetSampleDescriptor(small.Handle(), second, nullptr), 20u);
  small.Finish();
  EXPECT_EQ(QiroK7MWriterSetSampleDescriptor(small.Handle(), second, descriptor), 48u);
}

}  // namespace
}  // namespace k7mtest
