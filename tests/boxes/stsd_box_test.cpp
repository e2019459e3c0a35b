#include "boxes/stsd_box.h"

#include <gtest/gtest.h>

#include "boxes/media_boxes.h"
#include "boxes/stbl_box.h"
#include "internals/document.h"
#include "internals/dump.h"

namespace k7mtest {
namespace {

Bytes Media(const std::string& handler, const Bytes& stsd) {
  const Bytes stbl = Box("stbl", stsd, FullBox("stts", 0, 0, Stts{}), FullBox("stsc", 0, 0, Stsc{}),
                         FullBox("stsz", 0, 0, Stsz{}), FullBox("stco", 0, 0, Stco{}));
  return Box("mdia", FullBox("mdhd", 0, 0, Mdhd{}), FullBox("hdlr", 0, 0, Hdlr{.type = handler}),
             Box("minf", MinimalDinf(), stbl));
}

/// The 'stsd' of a track, completed.
struct Described {
  Described(const std::string& handler, const Bytes& stsdBytes)
      : document(Media(handler, stsdBytes)) {
    stsd = document.Next<impl::MdiaBox>().GetMinfBox()->GetStblBox()->GetStsdBox();
  }
  const impl::SampleDescriptor& Descriptor(uint32_t index) const {
    return *stsd->GetSampleEntry(index)->GetSampleDescriptor();
  }
  Document document;
  impl::StsdBox* stsd = nullptr;
};

Bytes StsdOf(const std::vector<Bytes>& entries, Count count = {}) {
  return FullBox("stsd", 0, 0, Stsd{.entries = entries, .count = count});
}

QiroK7MError DescribedError(const std::string& handler, const Bytes& stsd) {
  return ParseError(Media(handler, stsd));
}

TEST(Stsd, HoldsNoEntriesUntilTheMediaTypeIsKnown) {
  Document document(StsdOf({VideoEntry(), VideoEntry()}));
  auto& stsd = document.Next<impl::StsdBox>();
  EXPECT_EQ(stsd.GetEntryCount(), 2U);
  EXPECT_EQ(stsd.GetSampleEntry(1), nullptr);
  EXPECT_TRUE(stsd.Children().empty());
  EXPECT_TRUE(document.Warnings().empty());
  stsd.SetMediaType(Code("vide"));
  stsd.CompleteRead(&document.Root(), true);
  EXPECT_EQ(stsd.GetEntryCount(), 2U);
  EXPECT_NE(stsd.GetSampleEntry(2), nullptr);
}

TEST(Stsd, AVideoEntryGivesItsRecord) {
  const Bytes header = Box("avcC", Pattern(9));
  const Described video("vide", StsdOf({VideoEntry("avc1", {.dataReference = 3,
                                                            .width = 1920,
                                                            .height = 1080,
                                                            .horizontalResolution = 0x00488000,
                                                            .verticalResolution = 0x00960000,
                                                            .frameCount = 2,
                                                            .compressorName = "AVC Coding",
                                                            .depth = 0x18,
                                                            .codecHeader = header})}));
  QiroK7MVideoSampleDescInfo info;
  video.Descriptor(1).CopyRecord(&info);
  EXPECT_EQ(info.size, 28U);
  EXPECT_EQ(info.width, 1920U);
  EXPECT_EQ(info.height, 1080U);
  EXPECT_EQ(info.horizontalResolution, 72.5F);
  EXPECT_EQ(info.verticalResolution, 150.0F);
  EXPECT_EQ(info.frameCount, 2U);
  EXPECT_EQ(info.depth, 24U);
  EXPECT_EQ(video.Descriptor(1).GetInfo().size, 16U);
  EXPECT_EQ(video.Descriptor(1).GetInfo().type, Code("avc1"));
  EXPECT_EQ(video.Descriptor(1).GetInfo().mediaType, Code("vide"));
  EXPECT_EQ(video.Descriptor(1).GetInfo().codecHeaderDataLength, 17U);
  EXPECT_EQ(Bytes(video.Descriptor(1).GetCodecHeader()), header);
}

TEST(Stsd, AnAudioEntryGivesItsRecord) {
  const Bytes header = Box("esds", Pattern(30));
  const Described audio("soun", StsdOf({AudioEntry("mp4a", {.channelCount = 6,
                                                            .sampleSize = 24,
                                                            .sampleRate = 0xBB808000,
                                                            .codecHeader = header})}));
  QiroK7MAudioSampleDescInfo info;
  audio.Descriptor(1).CopyRecord(&info);
  EXPECT_EQ(info.size, 12U);
  EXPECT_EQ(info.sampleRate, 48000.5F);
  EXPECT_EQ(info.channelCount, 6);
  EXPECT_EQ(info.sampleSize, 24);
  EXPECT_EQ(Bytes(audio.Descriptor(1).GetCodecHeader()), header);
}

TEST(Stsd, AVorpEntryGivesItsRecord) {
  const Described hint("hint", StsdOf({VorpEntry("vorp", {.hintTrackVersion = 1,
                                                          .highestCompatibleVersion = 2,
                                                          .maxPacketSize = 65535,
                                                          .codecHeader = Pattern(5)})}));
  QiroK7MVorpSampleDescInfo info;
  hint.Descriptor(1).CopyRecord(&info);
  EXPECT_EQ(info.size, 12U);
  EXPECT_EQ(info.hintTrackVersion, 1);
  EXPECT_EQ(info.highestCompatibleVersion, 2);
  EXPECT_EQ(info.maxPacketSize, 65535);
  EXPECT_EQ(Bytes(hint.Descriptor(1).GetCodecHeader()), Pattern(5));
}

TEST(Stsd, AnEntryOfAnotherMediaTypeIsAllCodecHeader) {
  for (const char* handler : {"text", "meta", "sbtl", "\0\0\0\0"}) {
    const Described other(std::string(handler, 4),
                          StsdOf({OtherEntry("amf0", {.codecHeader = Pattern(50)})}));
    EXPECT_EQ(Bytes(other.Descriptor(1).GetCodecHeader()), Pattern(50));
    EXPECT_EQ(other.Descriptor(1).GetInfo().type, Code("amf0"));
  }
}

TEST(Stsd, TheClassOfAnEntryFollowsTheMediaTypeNotItsCode) {
  const Described audio("soun", StsdOf({AudioEntry("avc1", {.channelCount = 7})}));
  EXPECT_NE(dynamic_cast<impl::K7MAudioSampleEntry*>(audio.stsd->GetSampleEntry(1)), nullptr);
  EXPECT_EQ(audio.Descriptor(1).GetInfo().type, Code("avc1"));
  const Described video("vide", StsdOf({VideoEntry("mp4a")}));
  EXPECT_NE(dynamic_cast<impl::K7MVideoSampleEntry*>(video.stsd->GetSampleEntry(1)), nullptr);
  const Described hint("hint", StsdOf({VorpEntry("rtp ")}));
  EXPECT_NE(dynamic_cast<impl::K7MVorpSampleEntry*>(hint.stsd->GetSampleEntry(1)), nullptr);
}

TEST(Stsd, EntriesAreNumberedFromOne) {
  const Described video("vide",
                        StsdOf({VideoEntry("aaaa"), VideoEntry("bbbb"), VideoEntry("cccc")}));
  EXPECT_EQ(video.stsd->GetSampleEntry(0), nullptr);
  EXPECT_EQ(TypeOf(video.stsd->GetSampleEntry(1)), Code("aaaa"));
  EXPECT_EQ(TypeOf(video.stsd->GetSampleEntry(3)), Code("cccc"));
  EXPECT_EQ(video.stsd->GetSampleEntry(4), nullptr);
  EXPECT_EQ(video.stsd->GetSampleEntry(0xFFFFFFFF), nullptr);
  EXPECT_EQ(video.Descriptor(1).GetSDID(), 1U);
  EXPECT_EQ(video.Descriptor(3).GetSDID(), 3U);
  EXPECT_EQ(video.stsd->Children().size(), 3U);
}

TEST(Stsd, KnowsItsLongestCodecHeader) {
  const Described other("text", StsdOf({OtherEntry("a", {.codecHeader = Pattern(5)}),
                                        OtherEntry("b", {.codecHeader = Pattern(50)}),
                                        OtherEntry("c", {.codecHeader = Pattern(7)})}));
  EXPECT_EQ(other.stsd->GetMaxCodecHeaderDataLen(), 50U);
  EXPECT_EQ(Described("text", StsdOf({})).stsd->GetMaxCodecHeaderDataLen(), 0U);
}

TEST(Stsd, FewerEntriesThanCountedWarn) {
  Described video("vide", StsdOf({VideoEntry(), VideoEntry()}, 3));
  EXPECT_EQ(video.stsd->GetEntryCount(), 2U);
  EXPECT_NE(video.stsd->GetSampleEntry(2), nullptr);
  EXPECT_EQ(video.document.Warnings(), Codes{3076});
}

TEST(Stsd, MoreEntriesThanCountedAreNotRead) {
  Described video("vide", StsdOf({VideoEntry(), VideoEntry()}, 1));
  EXPECT_EQ(video.stsd->GetEntryCount(), 1U);
  EXPECT_EQ(video.stsd->GetSampleEntry(2), nullptr);
  EXPECT_TRUE(video.document.Warnings().empty());
}

TEST(Stsd, ARefusedWarningAborts) {
  Document document(Media("vide", StsdOf({VideoEntry()}, 2)));
  document.Opened().Recorder().RefuseNth(1);
  EXPECT_EQ(ErrorOf([&] { document.Next(); }), 1028U);
}

TEST(Stsd, FreeSpaceAmongTheEntriesUsesUpACount) {
  for (const char* code : {"free", "skip"}) {
    Described video("vide",
                    StsdOf({VideoEntry("aaaa"), Box(code, Pattern(9)), VideoEntry("bbbb")}));
    EXPECT_EQ(video.stsd->GetEntryCount(), 2U);
    EXPECT_EQ(TypeOf(video.stsd->GetSampleEntry(2)), Code("bbbb"));
    EXPECT_EQ(video.document.Warnings(), Codes{3076});
    const Described cut("vide", StsdOf({Box(code), VideoEntry()}, 1));
    EXPECT_EQ(cut.stsd->GetEntryCount(), 0U);
  }
}

TEST(Stsd, AnEntryPastTheEndEndsTheList) {
  Bytes lying = VideoEntry("bbbb");
  lying.Patch(0, lying.Size() + 1);
  Described video("vide", StsdOf({VideoEntry("aaaa"), lying}));
  EXPECT_EQ(video.stsd->GetEntryCount(), 1U);
  EXPECT_EQ(video.document.Warnings(), Codes{3076});
}

TEST(Stsd, AnEntryPastTheEndOfTheStreamIsError27) {
  EXPECT_EQ(DescribedError("vide", StsdOf({LyingBox("avc1", 100000, Pattern(80))})), 27U);
}

TEST(Stsd, AnEntryWhoseEndWrapsEndsTheList) {
  Described video("vide", StsdOf({LyingLargeBox("avc1", UINT64_MAX, Pattern(80))}));
  EXPECT_EQ(video.stsd->GetEntryCount(), 0U);
  EXPECT_EQ(video.document.Warnings(), Codes{3076});
}

TEST(Stsd, FewerThan8BytesBehindTheEntriesAreNoEntry) {
  for (size_t stray = 0; stray < 8; ++stray) {
    Described video("vide", StsdOf({VideoEntry(), Pattern(stray)}, 2));
    EXPECT_EQ(video.stsd->GetEntryCount(), 1U) << stray;
    EXPECT_EQ(video.document.Warnings(), Codes{3076});
  }
}

TEST(Stsd, AnEntrySmallerThanItsHeaderIsError27) {
  EXPECT_EQ(DescribedError("vide", StsdOf({LyingBox("avc1", 7, Pattern(80))})), 27U);
}

TEST(Stsd, ACountAbove100000000IsError31) {
  EXPECT_EQ(DescribedError("vide", StsdOf({VideoEntry()}, 100000001)), 31U);
  EXPECT_EQ(DescribedError("vide", StsdOf({VideoEntry()}, 100000000)), 0U);
}

TEST(Stsd, EveryTruncationOfAnEntryIsError27) {
  const auto check = [](const char* handler, const Bytes& entry) {
    for (size_t size = 8; size < entry.Size(); ++size) {
      Bytes cut = Cut(entry, size);
      cut.Patch(0, size);
      EXPECT_EQ(DescribedError(handler, StsdOf({cut})), 27U) << handler << ' ' << size;
    }
    EXPECT_EQ(DescribedError(handler, StsdOf({entry})), 0U) << handler;
  };
  check("vide", VideoEntry());
  check("soun", AudioEntry());
  check("hint", VorpEntry());
  check("text", OtherEntry());
}

TEST(Stsd, EntriesMayHaveEveryFormOfHeader) {
  const Bytes payload = Bytes().Fill(6).U16(1).Append(Pattern(20));
  const Described other("text", StsdOf({LargeBox("aaaa", payload), BoxAsUuid("bbbb", payload),
                                        UuidBox(Uuid{1}, payload)}));
  ASSERT_EQ(other.stsd->GetEntryCount(), 3U);
  for (uint32_t index = 1; index <= 3; ++index) {
    EXPECT_EQ(Bytes(other.Descriptor(index).GetCodecHeader()), Pattern(20));
  }
  EXPECT_EQ(other.Descriptor(2).GetInfo().type, Code("bbbb"));
}

TEST(Stsd, EntriesReportTheirFields) {
  const Described video("vide", StsdOf({VideoEntry("avc1", {.compressorName = "x"})}));
  EXPECT_EQ(Dump(*video.stsd->GetSampleEntry(1)),
            "data_reference_index=1 width=64 height=48 horizresolution=72 vertresolution=72 "
            "frame_count=1 compressorname=01780000000000000000000000000000000000000000000000000000"
            "00000000 depth=24 codec_header=");
  const Described audio("soun", StsdOf({AudioEntry("mp4a", {.codecHeader = {0xAB}})}));
  EXPECT_EQ(Dump(*audio.stsd->GetSampleEntry(1)),
            "data_reference_index=1 channelcount=2 samplesize=16 samplerate=48000 codec_header=ab");
  const Described hint("hint", StsdOf({VorpEntry()}));
  EXPECT_EQ(Dump(*hint.stsd->GetSampleEntry(1)),
            "data_reference_index=1 hint_track_version=1 highest_compatible_version=1 "
            "max_packet_size=1400 codec_header=");
}

TEST(Mdia, TheHandlerMayStandBehindTheTables) {
  const Bytes stbl = Box("stbl", StsdOf({AudioEntry()}), FullBox("stts", 0, 0, Stts{}),
                         FullBox("stsc", 0, 0, Stsc{}), FullBox("stsz", 0, 0, Stsz{}),
                         FullBox("stco", 0, 0, Stco{}));
  Document document(Box("mdia", Box("minf", stbl, MinimalDinf()), FullBox("mdhd", 0, 0, Mdhd{}),
                        FullBox("hdlr", 0, 0, Hdlr{.type = "soun"})));
  auto* stsd = document.Next<impl::MdiaBox>().GetMinfBox()->GetStblBox()->GetStsdBox();
  EXPECT_NE(dynamic_cast<impl::K7MAudioSampleEntry*>(stsd->GetSampleEntry(1)), nullptr);
}

}  // namespace
}  // namespace k7mtest
