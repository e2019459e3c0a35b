// The movie and track skeleton beyond what every box has in common.
#include <gtest/gtest.h>

#include "boxes/ftyp_box.h"
#include "boxes/media_boxes.h"
#include "boxes/skip_box.h"
#include "boxes/stbl_box.h"
#include "boxes/track_boxes.h"
#include "boxes/uuid_boxes.h"
#include "internals/document.h"
#include "internals/dump.h"

namespace k7mtest {
namespace {

using Numbers = std::vector<uint32_t>;

// 'ftyp'
// -------------------------------------------------------------------------------------------

Numbers Brands(const impl::FtypBox& ftyp) {
  return {ftyp.GetCompatibleBrands().begin(), ftyp.GetCompatibleBrands().end()};
}

TEST(Ftyp, HoldsItsBrandsInFileOrder) {
  Document document(Box(
      "ftyp",
      Ftyp{.majorBrand = "qt  ", .minorVersion = 0x20050300, .brands = {"isom", "isom", "mp42"}}));
  auto& ftyp = document.Next<impl::FtypBox>();
  EXPECT_EQ(ftyp.GetMajorBrand(), Code("qt  "));
  EXPECT_EQ(ftyp.GetMinorVersion(), 0x20050300U);
  EXPECT_EQ(Brands(ftyp), (Numbers{Code("isom"), Code("isom"), Code("mp42")}));
  EXPECT_EQ(Dump(ftyp),
            "major_brand='qt  ' minor_version=537199360 "
            "compatible_brands=[3] { brand='isom' } { brand='isom' } { brand='mp42' } ;");
}

TEST(Ftyp, OfExactly8BytesHasNoCompatibleBrands) {
  Document document(Box("ftyp", Ftyp{.brands = {}}));
  EXPECT_TRUE(Brands(document.Next<impl::FtypBox>()).empty());
  EXPECT_TRUE(document.Warnings().empty());
}

TEST(Ftyp, WithABrandListOfOddLengthWarnsAndHasNoBrands) {
  for (const size_t stray : {1U, 2U, 3U, 5U, 10U}) {
    Document document(Box("ftyp", Ftyp{.brands = {}}, Pattern(stray)));
    auto& ftyp = document.Next<impl::FtypBox>();
    EXPECT_EQ(ftyp.GetMajorBrand(), Code("k7m "));
    EXPECT_TRUE(Brands(ftyp).empty());
    EXPECT_EQ(document.Warnings(), Codes{3073});
  }
}

TEST(Ftyp, ARefusedWarningAborts) {
  Document document(Box("ftyp", Ftyp{.brands = {}}, Pattern(2)));
  document.Opened().Recorder().RefuseNth(1);
  EXPECT_EQ(ErrorOf([&] { document.Next(); }), 1028U);
}

TEST(Ftyp, ShorterThan8BytesIsError27) {
  for (size_t size = 0; size < 8; ++size) {
    EXPECT_EQ(ParseError(Box("ftyp", Pattern(size)) + Box("free", Pattern(30))), 27U) << size;
  }
}

TEST(Ftyp, ABrandListOf400000001BytesOrMoreIsError27) {
  const auto parse = [](uint64_t listSize) {
    Document document(LyingBox("ftyp", static_cast<uint32_t>(16 + listSize), Pattern(8)));
    document.Opened().Memory().SetLength(500000000);
    document.Opened().Memory().FailNth(Call::kRead, 3, 4711);  // Spares the reading of the list.
    return ErrorOf([&] { document.Next(); });
  };
  EXPECT_EQ(parse(400000000), 4711U);
  EXPECT_EQ(parse(400000001), 27U);
  EXPECT_EQ(parse(400000004), 27U);
}

// Headers
// ------------------------------------------------------------------------------------------

TEST(Mvhd, GivesItsFields) {
  Document document(FullBox("mvhd", 1, 0,
                            Mvhd{.creationTime = 3029627045,
                                 .modificationTime = 86400,
                                 .timeScale = 90000,
                                 .duration = 0x123456789ABCDEF0,
                                 .rate = 0x00020000,
                                 .volume = 0x0040}));
  auto& mvhd = document.Next<impl::MvhdBox>();
  EXPECT_EQ(mvhd.GetCreationTime().year, 2000);
  EXPECT_EQ(mvhd.GetCreationTime().second, 5);
  EXPECT_EQ(mvhd.GetModificationTime().day, 2);
  EXPECT_EQ(mvhd.GetTimeScale(), 90000U);
  EXPECT_EQ(mvhd.GetDuration(), 0x123456789ABCDEF0U);
  EXPECT_EQ(mvhd.GetPlayRate(), 2.0F);
  EXPECT_EQ(mvhd.GetVolume(), 0.25F);
}

TEST(Mvhd, PayloadSizesAreThoseOfTheLayout) {
  EXPECT_EQ(impl::MvhdBox::kPayloadSizeV0, 96U);
  EXPECT_EQ(impl::MvhdBox::kPayloadSizeV1, 108U);
  EXPECT_EQ(impl::TkhdBox::kPayloadSizeV0, 80U);
  EXPECT_EQ(impl::TkhdBox::kPayloadSizeV1, 92U);
  EXPECT_EQ(impl::MdhdBox::kPayloadSizeV0, 20U);
  EXPECT_EQ(impl::MdhdBox::kPayloadSizeV1, 32U);
  EXPECT_EQ(impl::ElstBox::kPayloadSizeV0, 12U);
  EXPECT_EQ(impl::ElstBox::kPayloadSizeV1, 20U);
  EXPECT_EQ(impl::VmhdBox::kPayloadSizeV0, 8U);
  EXPECT_EQ(impl::SmhdBox::kPayloadSizeV1, 4U);
  EXPECT_EQ(impl::DrefBox::kPayloadSizeV0, 4U);
}

TEST(Mvhd, TimesBeyondTheCalendarSaturate) {
  Document document(FullBox("mvhd", 1, 0, Mvhd{.creationTime = UINT64_MAX}));
  const auto& time = document.Next<impl::MvhdBox>().GetCreationTime();
  EXPECT_EQ(time.year, 65535);
  EXPECT_EQ(time.second, 59);
}

TEST(Mvhd, IsWrittenWithTheUnityMatrixWhateverWasRead) {
  const Mvhd other{.matrix = {9, 8, 7, 6, 5, 4, 3, 2, 1}};
  MemoryStream memory(FullBox("mvhd", 1, 0, other));
  impl::QiroK7MIOStream stream(memory.ReadingAndWriting());
  stream.Open();
  impl::RootBox root(&stream, nullptr);
  root.ParseNextBox()->WriteBox();
  EXPECT_EQ(memory.Content(), FullBox("mvhd", 1, 0, Mvhd{}));
}

TEST(Tkhd, IsWrittenWithTheUnityMatrixWhateverWasRead) {
  const Tkhd other{.matrix = {9, 8, 7, 6, 5, 4, 3, 2, 1}};
  MemoryStream memory(FullBox("tkhd", 1, 3, other));
  impl::QiroK7MIOStream stream(memory.ReadingAndWriting());
  stream.Open();
  impl::RootBox root(&stream, nullptr);
  root.ParseNextBox()->WriteBox();
  EXPECT_EQ(memory.Content(), FullBox("tkhd", 1, 3, Tkhd{}));
}

TEST(Tkhd, GivesItsFields) {
  Document document(FullBox("tkhd", 0, 0x123456,
                            Tkhd{.creationTime = 86400,
                                 .modificationTime = 2 * 86400,
                                 .trackId = 77,
                                 .duration = 0xFFFFFFFF,
                                 .volume = 0x0100,
                                 .width = 0x02800000,
                                 .height = 0x01E08000}));
  auto& tkhd = document.Next<impl::TkhdBox>();
  EXPECT_EQ(tkhd.GetFlags(), 0x123456U);
  EXPECT_EQ(tkhd.GetCreationTime().day, 2);
  EXPECT_EQ(tkhd.GetModificationTime().day, 3);
  EXPECT_EQ(tkhd.GetTrackID(), 77U);
  EXPECT_EQ(tkhd.GetDuration(), 0xFFFFFFFFU);
  EXPECT_EQ(tkhd.GetVolume(), 1.0F);
  EXPECT_EQ(tkhd.GetWidth(), 640.0F);
  EXPECT_EQ(tkhd.GetHeight(), 480.5F);
}

TEST(Mdhd, GivesItsFields) {
  Document document(FullBox(
      "mdhd", 1, 0, Mdhd{.timeScale = 48000, .duration = 1234567890123, .language = 0xD5C4}));
  auto& mdhd = document.Next<impl::MdhdBox>();
  EXPECT_EQ(mdhd.GetTimeScale(), 48000U);
  EXPECT_EQ(mdhd.GetDuration(), 1234567890123U);
  EXPECT_EQ(mdhd.GetLanguage(), 0xD5C4);  // As stored, the top bit too.
}

TEST(Mdhd, OfAVersionAboveOneIsError1029) {
  for (const uint8_t version : {uint8_t{2}, uint8_t{3}, uint8_t{255}}) {
    EXPECT_EQ(ParseError(FullBox("mdhd", version, 0, Mdhd{})), 1029U);
  }
}

TEST(Dref, OfAVersionAboveOneIsError1029) {
  for (const uint8_t version : {uint8_t{2}, uint8_t{3}, uint8_t{255}}) {
    EXPECT_EQ(ParseError(FullBox("dref", version, 0, Dref{})), 1029U);
  }
  EXPECT_EQ(ParseError(FullBox("dref", 1, 0, Dref{})), 0U);
}

TEST(Dref, HasItsChildrenBehindTheCount) {
  Document document(FullBox("dref", 0, 0, Dref{}));
  auto& dref = document.Next<impl::DrefBox>();
  ASSERT_NE(dref.GetUrlBox(), nullptr);
  EXPECT_EQ(dref.GetUrlBox()->GetBeginOffset(), 16U);
  EXPECT_EQ(dref.GetUrlBox()->GetFlags(), 1U);
  EXPECT_EQ(dref.GetHeaderSize(), 16U);
}

TEST(Url, MayHaveALocationThatIsNotRead) {
  Document document(FullBox("url ", 0, 0, Bytes().Text("http://example.org/a")));
  EXPECT_EQ(document.Next<impl::UrlBox>().GetFlags(), 0U);
  EXPECT_TRUE(document.Warnings().empty());
}

// 'hdlr'
// -------------------------------------------------------------------------------------------

std::string NameOf(const std::string& stored) {
  Document document(FullBox("hdlr", 0, 0, Hdlr{.type = "vide", .name = stored}));
  auto& hdlr = document.Next<impl::HdlrBox>();
  EXPECT_EQ(hdlr.GetHandlerType(), Code("vide"));
  return {reinterpret_cast<const char*>(hdlr.GetHandlerName()), hdlr.GetHandlerNameSize()};
}

TEST(Hdlr, ANameThatEndsWithZeroIsKeptAsItIs) {
  EXPECT_EQ(NameOf(std::string("video\0", 6)), std::string("video\0", 6));
  EXPECT_EQ(NameOf(std::string("\0", 1)), std::string("\0", 1));
  EXPECT_EQ(NameOf(std::string("a\0b\0\0", 5)), std::string("a\0b\0\0", 5));
}

TEST(Hdlr, AMissingZeroIsAddedAndCounted) {
  EXPECT_EQ(NameOf("video"), std::string("video\0", 6));
  EXPECT_EQ(NameOf(std::string("a\0b", 3)), std::string("a\0b\0", 4));
}

TEST(Hdlr, AnEmptyRestGivesNoName) { EXPECT_EQ(NameOf(""), ""); }

TEST(Hdlr, ANameOf100000001BytesOrMoreIsError9) {
  const auto parse = [](uint64_t nameSize) {
    Document document(
        LyingFullBox("hdlr", static_cast<uint32_t>(32 + nameSize), 0, 0, Hdlr{.name = ""}));
    document.Opened().Memory().SetLength(200000000);
    document.Opened().Memory().FailNth(Call::kRead, 4, 4711);  // Spares the reading of the name.
    return ErrorOf([&] { document.Next(); });
  };
  EXPECT_EQ(parse(100000000), 4711U);
  EXPECT_EQ(parse(100000001), 9U);
}

// 'tref', 'hint'
// -----------------------------------------------------------------------------------

TEST(Tref, AsksItsHintForTrackIds) {
  Document document(Box("tref", Box("cdsc", Bytes().U32(9)), Box("hint", Bytes().U32(3).U32(5))));
  auto& tref = document.Next<impl::TrefBox>();
  EXPECT_TRUE(tref.ValidateHintRefTrackID(3));
  EXPECT_TRUE(tref.ValidateHintRefTrackID(5));
  EXPECT_FALSE(tref.ValidateHintRefTrackID(4));
  EXPECT_FALSE(tref.ValidateHintRefTrackID(9));
}

TEST(Tref, WithoutAHintRefersToNothing) {
  Document document(Box("tref"));
  EXPECT_FALSE(document.Next<impl::TrefBox>().ValidateHintRefTrackID(0));
}

TEST(Hint, MayBeEmpty) {
  Document document(Box("hint"));
  EXPECT_EQ(Dump(*document.Next()), "track_IDs=[0] ;");
  EXPECT_TRUE(document.Warnings().empty());
}

TEST(Hint, OfOddLengthWarnsAndHasNoIds) {
  Document document(Box("hint", Bytes().U32(3).U8(1)));
  EXPECT_FALSE(document.Next<impl::HintBox>().ValidateHintRefTrackID(3));
  EXPECT_EQ(document.Warnings(), Codes{3073});
}

TEST(Hint, ReadsItsIdsInEveryFormOfHeader) {
  for (const Bytes& form : {LargeBox("hint", Bytes().U32(3)), BoxAsUuid("hint", Bytes().U32(3))}) {
    Document document(form);
    EXPECT_EQ(Dump(*document.Next()), "track_IDs=[1] { track_ID=3 } ;");
  }
}

// 'uuid', metadata, 'skip', 'mdat'
// -----------------------------------------------------------------

TEST(UuidBoxes, KeepTheirPayloadUntouched) {
  Document document(UuidBox(Uuid{1, 2, 3}, Pattern(50)));
  auto& box = document.Next<impl::UuidBox>();
  EXPECT_TRUE(box.HasPayload());
  ASSERT_EQ(box.GetPayloadSize(), 50U);
  EXPECT_EQ(Bytes(std::vector<uint8_t>(box.GetPayload(), box.GetPayload() + 50)), Pattern(50));
}

TEST(UuidBoxes, ShowTheirTypeAndPayload) {
  Document document(UuidBox(Uuid{1, 2, 3}, Bytes{0xAB, 0xCD}));
  EXPECT_EQ(Dump(document.Next<impl::UuidBox>()),
            "extended_type=01020300000000000000000000000000 payload=abcd");
}

TEST(UuidBoxes, MayHaveNoPayload) {
  Document document(UuidBox(kMetadataUuid));
  auto& box = document.Next<impl::UlbDataBox>();
  EXPECT_FALSE(box.HasPayload());
  EXPECT_EQ(box.GetUlbDataLen(), 0U);
  uint8_t untouched = 0x5A;
  box.CopyUlbData(&untouched);
  EXPECT_EQ(untouched, 0x5A);
}

TEST(UuidBoxes, TheMetadataPacketIsCopiedAsItIs) {
  for (const Bytes& form : {UuidBox(kMetadataUuid, Pattern(20)),
                            LargeBox("uuid", UuidBytes(kMetadataUuid), Pattern(20)),
                            TillEndBox("uuid", UuidBytes(kMetadataUuid), Pattern(20))}) {
    Document document(form);
    auto& box = document.Next<impl::UlbDataBox>();
    ASSERT_EQ(box.GetUlbDataLen(), 20U);
    Bytes copy = Bytes().Fill(21, 0xEE);
    box.CopyUlbData(copy.Data());
    EXPECT_EQ(copy, Pattern(20).U8(0xEE));
  }
}

TEST(UuidBoxes, AreWrittenAsTheyWereRead) {
  const Bytes bytes = Box("free") + UuidBox(Uuid{9, 8, 7}, Pattern(50)) + Box("free");
  MemoryStream memory(bytes);
  impl::QiroK7MIOStream stream(memory.ReadingAndWriting());
  stream.Open();
  impl::RootBox root(&stream, nullptr);
  root.ParseNextBox();
  impl::Box* box = root.ParseNextBox();
  memory.Put(8, Bytes().Fill(74, 0xEE));
  box->WriteBox();
  EXPECT_EQ(memory.Content(), bytes);
}

TEST(UuidBoxes, TakeANewPayloadAndItsSize) {
  Document document(UuidBox(Uuid{1}, Pattern(50)));
  auto& box = document.Next<impl::UuidBox>();
  const Bytes payload = Pattern(7, 3);
  box.SetPayload(payload.Data(), payload.Size());
  EXPECT_EQ(box.GetPayloadSize(), 7U);
  EXPECT_EQ(box.GetTotalSize(), 31U);
  EXPECT_EQ(Bytes(std::vector<uint8_t>(box.GetPayload(), box.GetPayload() + 7)), payload);
}

TEST(UuidBoxes, AShortReadOfThePayloadIsError5) {
  Document document(UuidBox(Uuid{1}, Pattern(50)));
  document.Opened().Memory().LimitReads(40);
  EXPECT_EQ(ErrorOf([&] { document.Next(); }), 5U);
}

TEST(MdatBox, ItsPayloadIsNotRead) {
  Document document(Box("mdat", Pattern(5000)));
  document.ParseAll();
  EXPECT_LT(document.Opened().Memory().BytesDelivered(), 100U);
}

TEST(SkipBox, ItsPayloadIsNotRead) {
  Document document(Box("skip", Pattern(5000)) + Box("free", Pattern(5000)));
  document.ParseAll();
  EXPECT_LT(document.Opened().Memory().BytesDelivered(), 100U);
}

}  // namespace
}  // namespace k7mtest
