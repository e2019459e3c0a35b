#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "description_records.h"

namespace k7mtest {
namespace {

TEST(Descriptions, AVideoEntryStandsInFrontOfTheReservedSpace) {
  const NewTrack track;
  const auto info = VideoRecord();
  for (const size_t size : {size_t{0}, size_t{1}, size_t{32}, size_t{140}, size_t{150}}) {
    const Bytes header = Pattern(size);
    EXPECT_EQ(StsdAfter(&QiroK7MWriterAddVideoSampleDescriptor, track, header, &info),
              ExpectedStsd(track, {ExpectedVideo("avc1", "AVC Coding", header)}));
  }
}

TEST(Descriptions, ARestTooShortForABoxIsLeftAsZeros) {
  const NewTrack track{.descriptorCount = 1};
  const auto info = VideoRecord();
  for (size_t rest = 0; rest <= 9; ++rest) {
    const Bytes header = Pattern(32 - rest);
    const Bytes stsd = StsdAfter(&QiroK7MWriterAddVideoSampleDescriptor, track, header, &info);
    EXPECT_EQ(stsd, ExpectedStsd(track, {ExpectedVideo("avc1", "AVC Coding", header)}));
    EXPECT_EQ(stsd.Size(), 16u + 86 + 32);
  }
}

TEST(Descriptions, AnAudioEntryHasThirtySixBytesAndTheCodecHeader) {
  const NewTrack track{.mediaType = "soun"};
  const auto info = AudioRecord();
  const Bytes header = Pattern(20);
  EXPECT_EQ(StsdAfter(&QiroK7MWriterAddAudioSampleDescriptor, track, header, &info),
            ExpectedStsd(track, {ExpectedAudio("mp4a", header)}));
}

TEST(Descriptions, AVorpEntryHasTwentyTwoBytesAndTheCodecHeader) {
  const NewTrack track{.mediaType = "hint"};
  const auto info = VorpRecord();
  const Bytes header = Pattern(20);
  EXPECT_EQ(
      StsdAfter(&QiroK7MWriterAddVorpSampleDescriptor, track, header, &info),
      ExpectedStsd(
          track, {Box("vorp", Bytes().Fill(6).U16(1).U16(0x1234).U16(0x0102).U16(1450), header)}));
}

TEST(Descriptions, AHintTrackReservesSixBytesFewerThanAVorpEntryNeeds) {
  const NewTrack track{.mediaType = "hint", .descriptorCount = 1, .maxCodecHeaderLength = 10};
  const auto info = VorpRecord();
  OpenedWriter writer;
  QiroK7MTrack* added = writer.AddTrack(track);
  EXPECT_EQ(
      AddWith(&QiroK7MWriterAddVorpSampleDescriptor, writer.Handle(), added, Pattern(5), &info),
      15u);
  EXPECT_TRUE(writer.IsGood());
  EXPECT_EQ(
      AddWith(&QiroK7MWriterAddVorpSampleDescriptor, writer.Handle(), added, Pattern(4), &info),
      0u);
}

TEST(Descriptions, TheCodingIsToldByTheFirstBoxOfTheCodecHeader) {
  const auto entryCode = [](auto function, const char* mediaType, const auto& info,
                            const Bytes& header) {
    return Text(StsdAfter(function, {.mediaType = mediaType}, header, &info).Slice(20, 4));
  };
  const auto video = [&](const Bytes& header) {
    return entryCode(&QiroK7MWriterAddVideoSampleDescriptor, "vide", VideoRecord(), header);
  };
  const auto audio = [&](const Bytes& header) {
    return entryCode(&QiroK7MWriterAddAudioSampleDescriptor, "soun", AudioRecord(), header);
  };
  EXPECT_EQ(video(Box("avcC", Bytes{1})), "avc1");
  EXPECT_EQ(video(Box("hvcC", Bytes{1})), "hvc1");
  EXPECT_EQ(video(Box("vpcC", Bytes{1})), "vp09");
  EXPECT_EQ(video(Box("av1C", Bytes{1})), "av01");
  EXPECT_EQ(video(Box("esds", Bytes{1})), "mp4v");
  EXPECT_EQ(video(Box("dOps", Bytes{1})), "avc1");
  EXPECT_EQ(video(Box("pasp", Bytes{1}) + Box("hvcC")), "avc1");
  EXPECT_EQ(video({}), "avc1");
  EXPECT_EQ(video(Box("hvcC")), "hvc1");
  EXPECT_EQ(video(Cut(Box("hvcC"), 7)), "avc1");
  EXPECT_EQ(audio(Box("esds", Bytes{1})), "mp4a");
  EXPECT_EQ(audio(Box("dOps", Bytes{1})), "Opus");
  EXPECT_EQ(audio(Box("dfLa", Bytes{1})), "fLaC");
  EXPECT_EQ(audio(Box("dac3", Bytes{1})), "ac-3");
  EXPECT_EQ(audio(Box("dec3", Bytes{1})), "ec-3");
  EXPECT_EQ(audio(Box("hvcC", Bytes{1})), "mp4a");
  EXPECT_EQ(audio({}), "mp4a");
}

TEST(Descriptions, EntryCodeAndCompressorNameFollowTheCoding) {
  const auto info = VideoRecord();
  const auto entry = [&](const char* coding) {
    return StsdAfter(&QiroK7MWriterAddVideoSampleDescriptorWithType, {}, {}, Code(coding), &info)
        .Slice(16, 86);
  };
  for (const char* coding : {"avc1", "H264", "h264"}) {
    EXPECT_EQ(entry(coding), ExpectedVideo("avc1", "AVC Coding", {})) << coding;
  }
  for (const char* coding : {"VP6F", "VP6A"}) {
    EXPECT_EQ(entry(coding), ExpectedVideo(coding, "VP6 Coding", {})) << coding;
  }
  for (const char* coding : {"H263", "hvc1", "vp09", "zzzz"}) {
    EXPECT_EQ(entry(coding), ExpectedVideo(coding, "", {})) << coding;
  }
}

TEST(Descriptions, SoundCodingsAreUsedUnchanged) {
  const auto info = AudioRecord();
  for (const char* coding : {"mp4a", "spex", ".mp3", "H264", "avc1"}) {
    EXPECT_EQ(StsdAfter(&QiroK7MWriterAddAudioSampleDescriptorWithType, {.mediaType = "soun"}, {},
                        Code(coding), &info)
                  .Slice(16, 36),
              ExpectedAudio(coding, {}));
  }
}

TEST(Descriptions, TheGivenTypeWinsOverTheCodecHeader) {
  const auto info = VideoRecord();
  const Bytes header = Box("hvcC", Bytes{1});
  const Bytes stsd =
      StsdAfter(&QiroK7MWriterAddVideoSampleDescriptorWithType, {}, header, Code("H263"), &info);
  EXPECT_EQ(stsd.Slice(16, 95), ExpectedVideo("H263", "", header));
}

Bytes GenericEntry(const NewTrack& track, const char* coding, const Bytes& header) {
  OpenedWriter writer;
  writer.Describe(writer.AddTrack(track), coding, header);
  const Bytes stsd = FindBox(writer.File(), kStsd);
  return stsd.Slice(16, stsd.NumberAt(16));
}

TEST(Descriptions, TheGenericFunctionWritesEntriesOfTheTracksKind) {
  const Bytes header = Pattern(9);
  EXPECT_EQ(GenericEntry({.mediaType = "text"}, "tx3g", header),
            OtherEntry("tx3g", {.codecHeader = header}));
  EXPECT_EQ(GenericEntry({.mediaType = "meta"}, "amf0", {}), OtherEntry("amf0", {}));
  EXPECT_EQ(GenericEntry({.mediaType = "hint"}, "amf3", header),
            OtherEntry("amf3", {.codecHeader = header}));
  EXPECT_EQ(GenericEntry({.mediaType = "hint"}, "vorp", header),
            Box("vorp", Bytes().Fill(6).U16(1).Fill(6), header));
  EXPECT_EQ(GenericEntry({.mediaType = "text"}, "vorp", header),
            OtherEntry("vorp", {.codecHeader = header}));
  EXPECT_EQ(GenericEntry({.mediaType = "soun"}, ".mp3", header),
            Box(".mp3", Bytes().Fill(6).U16(1).Fill(20), header));
}

TEST(Descriptions, TheGenericFunctionTakesAVideoEntrysSizeFromTheTrack) {
  const auto expected = [](uint16_t width, uint16_t height) {
    return Box("H263", Bytes().Fill(6).U16(1).Fill(16).U16(width).U16(height).Fill(48), Bytes(),
               Bytes().U16(0xFFFF));
  };
  EXPECT_EQ(GenericEntry({.width = 640, .height = 480.75F}, "H263", {}), expected(640, 480));
  EXPECT_EQ(GenericEntry({.width = 0, .height = 1}, "H263", {}), expected(0, 1));
}

TEST(Descriptions, ATrackSizeThatIsNoNumberOfPixelsGivesAnEntryAllTheSame) {
  const float odd[] = {-1, 1e30F, -1e30F, std::numeric_limits<float>::infinity(), std::nanf("")};
  for (const float size : odd) {
    EXPECT_EQ(GenericEntry({.width = size, .height = size}, "H263", {}).Size(), 86u) << size;
  }
}

TEST(Descriptions, NumbersWiderThanTheirFieldsAreCut) {
  auto info = VideoRecord();
  info.width = 0x10001;
  info.height = 0xFFFF0002;
  info.frameCount = 0x10003;
  info.depth = 0x10004;
  const Bytes stsd = StsdAfter(&QiroK7MWriterAddVideoSampleDescriptor, {}, {}, &info);
  EXPECT_EQ(stsd.NumberAt(16 + 32, 2), 1u);
  EXPECT_EQ(stsd.NumberAt(16 + 34, 2), 2u);
  EXPECT_EQ(stsd.NumberAt(16 + 48, 2), 3u);
  EXPECT_EQ(stsd.NumberAt(16 + 82, 2), 4u);
}

TEST(Descriptions, LengthsInTheCallersRecordAreIgnored) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack({.mediaType = "text"});
  QiroK7MSampleDescInfo info{};
  info.size = 3;
  info.codecHeaderDataLength = 0xFFFFFFFF;
  info.type = Code("tx3g");
  info.mediaType = Code("text");
  CountedBuffer buffer(Pattern(5));
  QiroK7MSampleDescriptor* out = nullptr;
  ASSERT_EQ(QiroK7MWriterAddSampleDescriptor(writer.Handle(), track, &info, buffer.Record(), &out),
            0u);
  QiroK7MSampleDescInfo got{};
  ASSERT_EQ(QiroK7MSampleDescriptorGetInfo(out, &got), 0u);
  EXPECT_EQ(got.size, 16u);
  EXPECT_EQ(got.codecHeaderDataLength, 5u);
  EXPECT_EQ(got.type, Code("tx3g"));
  EXPECT_EQ(got.mediaType, Code("text"));
  Bytes copy;
  copy.Fill(5);
  ASSERT_EQ(QiroK7MSampleDescriptorCopyCodecHeaderData(out, copy.Data()), 0u);
  EXPECT_EQ(copy, Pattern(5));
}

TEST(Descriptions, AnEmptyBufferIsAnEmptyCodecHeader) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack();
  QiroK7MDataBuffer empty{};  // No data, no release function.
  const auto info = VideoRecord();
  QiroK7MSampleDescriptor* out = nullptr;
  EXPECT_EQ(QiroK7MWriterAddVideoSampleDescriptor(writer.Handle(), track, &info, &empty, &out), 0u);
  empty.length = 1;
  EXPECT_EQ(QiroK7MWriterAddVideoSampleDescriptor(writer.Handle(), track, &info, &empty, &out),
            20u);
  EXPECT_TRUE(writer.IsGood());
}

}  // namespace
}  // namespace k7mtest
