// Mandatory children, and what the containers keep of the others.
#include <gtest/gtest.h>

#include "boxes/box_factory.h"
#include "boxes/fragment_boxes.h"
#include "boxes/media_boxes.h"
#include "boxes/stbl_box.h"
#include "boxes/track_boxes.h"
#include "internals/document.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kInvalid = 14;

Bytes MvhdBytes() { return FullBox("mvhd", 0, 0, Mvhd{}); }
Bytes TkhdBytes() { return FullBox("tkhd", 0, 0, Tkhd{}); }
Bytes MdhdBytes() { return FullBox("mdhd", 0, 0, Mdhd{}); }
Bytes HdlrBytes() { return FullBox("hdlr", 0, 0, Hdlr{}); }
Bytes UrlBytes() { return FullBox("url ", 0, 1); }
Bytes DrefBytes() { return FullBox("dref", 0, 0, Dref{}); }

/// The container with its children is valid; without any one of them, or with any one of them
/// twice, it is not.
void ExpectEachExactlyOnce(const char* code, const std::vector<Bytes>& children) {
  const auto build = [&](size_t changed, int copies) {
    Bytes content;
    for (size_t i = 0; i < children.size(); ++i) {
      for (int copy = 0; copy < (i == changed ? copies : 1); ++copy) {
        content.Append(children[i]);
      }
    }
    return Box(code, content);
  };
  EXPECT_EQ(ParseError(build(children.size(), 1)), 0U) << code;
  for (size_t i = 0; i < children.size(); ++i) {
    EXPECT_EQ(ParseError(build(i, 0)), kInvalid) << code << " without child " << i;
    EXPECT_EQ(ParseError(build(i, 2)), kInvalid) << code << " with child " << i << " twice";
  }
}

TEST(Hierarchy, AMoovHasOneMvhdAndAtLeastOneTrak) {
  EXPECT_EQ(ParseError(MinimalMoov()), 0U);
  EXPECT_EQ(ParseError(Box("moov", MvhdBytes())), kInvalid);
  EXPECT_EQ(ParseError(Box("moov", MinimalTrak())), kInvalid);
  EXPECT_EQ(ParseError(Box("moov", MvhdBytes(), MvhdBytes(), MinimalTrak())), kInvalid);
  EXPECT_EQ(ParseError(Box("moov", MvhdBytes(), MinimalTrak(), MinimalTrak())), 0U);
  EXPECT_EQ(ParseError(Box("moov")), kInvalid);
}

TEST(Hierarchy, ATrakHasOneTkhdAndOneMdia) {
  ExpectEachExactlyOnce("trak", {TkhdBytes(), MinimalMdia()});
}

TEST(Hierarchy, AnMdiaHasOneMdhdOneHdlrAndOneMinf) {
  ExpectEachExactlyOnce("mdia", {MdhdBytes(), HdlrBytes(), MinimalMinf()});
}

TEST(Hierarchy, AMinfHasOneDinfAndOneStbl) {
  ExpectEachExactlyOnce("minf", {MinimalDinf(), MinimalStbl()});
}

TEST(Hierarchy, ADinfHasOneUrlOrDrefTogether) {
  EXPECT_EQ(ParseError(Box("dinf", UrlBytes())), 0U);
  EXPECT_EQ(ParseError(Box("dinf", DrefBytes())), 0U);
  EXPECT_EQ(ParseError(Box("dinf")), kInvalid);
  EXPECT_EQ(ParseError(Box("dinf", UrlBytes(), DrefBytes())), kInvalid);
  EXPECT_EQ(ParseError(Box("dinf", DrefBytes(), DrefBytes())), kInvalid);
}

TEST(Hierarchy, AnStblHasItsTablesOnceAndOneKindOfChunkOffsets) {
  const Bytes stsd = FullBox("stsd", 0, 0, Stsd{});
  const Bytes stts = FullBox("stts", 0, 0, Stts{});
  const Bytes stsc = FullBox("stsc", 0, 0, Stsc{});
  const Bytes stsz = FullBox("stsz", 0, 0, Stsz{});
  const Bytes stco = FullBox("stco", 0, 0, Stco{});
  const Bytes co64 = FullBox("co64", 0, 0, Co64{});
  ExpectEachExactlyOnce("stbl", {stsd, stts, stsc, stsz, stco});
  ExpectEachExactlyOnce("stbl", {stsd, stts, stsc, stsz, co64});
  EXPECT_EQ(ParseError(Box("stbl", stsd, stts, stsc, stsz, stco, co64)), kInvalid);
}

TEST(Hierarchy, OtherContainersHaveNoRules) {
  for (const char* code : {"tref", "edts", "dref", "mvex"}) {
    EXPECT_EQ(ParseError(Box(code, code == std::string("dref") ? Bytes().Fill(8) : Bytes())), 0U)
        << code;
  }
}

TEST(Hierarchy, AnMvexIsValidWhateverItsChildren) {
  Document document(Box("mvex", Box("aaaa"), FullBox("mehd", 0, 0, Mehd{}), Box("aaaa")));
  EXPECT_TRUE(document.Next<impl::MvexBox>().ValidateHierarchy());
}

TEST(Hierarchy, IsCheckedBeforeAnyPayloadIsRead) {
  // The 'mvhd' is truncated, but the missing 'trak' comes first.
  EXPECT_EQ(ParseError(Box("moov", FullBox("mvhd", 0, 0))), kInvalid);
  EXPECT_EQ(ParseError(Box("moov", FullBox("mvhd", 0, 0), MinimalTrak())), 27U);
}

TEST(Hierarchy, IsCheckedOnEveryLevel) {
  const Bytes badStbl = Box("stbl");
  const Bytes badMinf = Box("minf", MinimalDinf(), badStbl);
  const Bytes badMdia = Box("mdia", MdhdBytes(), HdlrBytes(), badMinf);
  EXPECT_EQ(ParseError(Box("moov", MvhdBytes(), Box("trak", TkhdBytes(), badMdia))), kInvalid);
}

// What containers keep
// -------------------------------------------------------------------------------

TEST(Moov, KeepsItsTracksInFileOrder) {
  const auto trak = [](uint32_t id) {
    return Box("trak", FullBox("tkhd", 0, 0, Tkhd{.trackId = id}), MinimalMdia());
  };
  Document document(Box("moov", trak(5), MvhdBytes(), trak(3), Box("udta"), trak(9)));
  auto& moov = document.Next<impl::MoovBox>();
  ASSERT_EQ(moov.GetTracks().size(), 3U);
  EXPECT_EQ(moov.GetTracks()[0]->GetTrackHeaderBox()->GetTrackID(), 5U);
  EXPECT_EQ(moov.GetTracks()[1]->GetTrackHeaderBox()->GetTrackID(), 3U);
  EXPECT_EQ(moov.GetTracks()[2]->GetTrackHeaderBox()->GetTrackID(), 9U);
  EXPECT_EQ(moov.GetMovieHeader()->GetTimeScale(), 600U);
  EXPECT_EQ(moov.Children().size(), 5U);
}

TEST(Trak, KeepsItsParts) {
  Document document(Box("trak", FullBox("tkhd", 0, 0, Tkhd{.duration = 44}), Box("tref"),
                        Box("edts", FullBox("elst", 0, 0, Elst{})), MinimalMdia()));
  auto& trak = document.Next<impl::TrakBox>();
  EXPECT_NE(trak.GetTrackHeaderBox(), nullptr);
  EXPECT_NE(trak.GetTrackRefBox(), nullptr);
  EXPECT_NE(trak.GetMediaBox(), nullptr);
  ASSERT_NE(trak.GetEdtsBox(), nullptr);
  EXPECT_EQ(trak.GetElstBox(), trak.GetEdtsBox()->GetElstBox());
  EXPECT_NE(trak.GetElstBox(), nullptr);
  EXPECT_EQ(trak.GetMediaType(), Code("vide"));
  EXPECT_EQ(trak.GetDurationInMovieTS(), 44U);
  EXPECT_NE(trak.GetStblBox(), nullptr);
  EXPECT_NE(trak.GetStsdBox(), nullptr);
  EXPECT_NE(trak.GetSttsBox(), nullptr);
  EXPECT_NE(trak.GetStscBox(), nullptr);
  EXPECT_NE(trak.GetStszBox(), nullptr);
  EXPECT_NE(trak.GetChunkOffBox(), nullptr);
  EXPECT_EQ(trak.GetCttsBox(), nullptr);
  EXPECT_EQ(trak.GetStssBox(), nullptr);
  EXPECT_EQ(trak.GetSdtpBox(), nullptr);
}

TEST(Trak, WithoutAnMdiaHasMediaTypeZeroAndNoTables) {
  // Such a track is refused when it is completed; here it is only made from its header.
  OpenedStream opened(Box("trak", TkhdBytes()));
  const auto header = impl::BoxHeader::Parse(opened.Stream(), nullptr);
  const impl::TrakBox trak(&opened.Stream(), header.value(), nullptr);
  EXPECT_EQ(trak.GetMediaType(), 0U);
  EXPECT_EQ(trak.GetDurationInMovieTS(), 0U);
  EXPECT_EQ(trak.GetStblBox(), nullptr);
  EXPECT_EQ(trak.GetStsdBox(), nullptr);
  EXPECT_EQ(trak.GetSttsBox(), nullptr);
  EXPECT_EQ(trak.GetCttsBox(), nullptr);
  EXPECT_EQ(trak.GetStscBox(), nullptr);
  EXPECT_EQ(trak.GetStszBox(), nullptr);
  EXPECT_EQ(trak.GetStssBox(), nullptr);
  EXPECT_EQ(trak.GetSdtpBox(), nullptr);
  EXPECT_EQ(trak.GetChunkOffBox(), nullptr);
  EXPECT_EQ(trak.GetElstBox(), nullptr);
  EXPECT_EQ(trak.GetEdtsBox(), nullptr);
  EXPECT_EQ(trak.GetTrackRefBox(), nullptr);
}

TEST(Minf, KeepsOnlyAnNmhdAsItsMediaHeaderDeliberately) {
  const auto withHeader = [](const Bytes& header) {
    return Box("minf", header, MinimalDinf(), MinimalStbl());
  };
  for (const Bytes& header : {FullBox("vmhd", 0, 1, Vmhd{}), FullBox("smhd", 0, 0, Smhd{}),
                              FullBox("hmhd", 0, 0, Bytes().Fill(16))}) {
    Document document(withHeader(header));
    auto& minf = document.Next<impl::MinfBox>();
    EXPECT_EQ(minf.GetMediaHeaderBox(), nullptr);
    EXPECT_NE(minf.GetStblBox(), nullptr);
    EXPECT_NE(minf.GetDinfBox(), nullptr);
    EXPECT_EQ(minf.Children().size(), 3U);
  }
  Document document(withHeader(FullBox("nmhd", 0, 0)));
  auto& minf = document.Next<impl::MinfBox>();
  EXPECT_EQ(TypeOf(minf.GetMediaHeaderBox()), Code("nmhd"));
  EXPECT_NE(minf.GetStblBox(), nullptr);
  EXPECT_NE(minf.GetDinfBox(), nullptr);
}

TEST(Dinf, KeepsItsDref) {
  Document document(Box("dinf", DrefBytes()) + Box("dinf", UrlBytes()));
  auto& withDref = document.Next<impl::DinfBox>();
  ASSERT_NE(withDref.GetDrefBox(), nullptr);
  EXPECT_NE(withDref.GetDrefBox()->GetUrlBox(), nullptr);
  EXPECT_EQ(document.Next<impl::DinfBox>().GetDrefBox(), nullptr);
}

TEST(Stbl, KeepsEveryTable) {
  const Bytes tables = FullBox("stsd", 0, 0, Stsd{}) + FullBox("stts", 0, 0, Stts{}) +
                       FullBox("ctts", 0, 0, Ctts{}) + FullBox("stsc", 0, 0, Stsc{}) +
                       FullBox("stsz", 0, 0, Stsz{}) + FullBox("stss", 0, 0, Stss{}) +
                       FullBox("sdtp", 0, 0);
  Document document(Box("stbl", tables, FullBox("co64", 0, 0, Co64{})) +
                    Box("stbl", tables, FullBox("stco", 0, 0, Stco{})));
  auto& with64 = document.Next<impl::StblBox>();
  EXPECT_NE(with64.GetStsdBox(), nullptr);
  EXPECT_NE(with64.GetSttsBox(), nullptr);
  EXPECT_NE(with64.GetCttsBox(), nullptr);
  EXPECT_NE(with64.GetStscBox(), nullptr);
  EXPECT_NE(with64.GetStszBox(), nullptr);
  EXPECT_NE(with64.GetStssBox(), nullptr);
  EXPECT_NE(with64.GetSdtpBox(), nullptr);
  EXPECT_NE(dynamic_cast<impl::Co64Box*>(with64.GetChunkOffBox()), nullptr);
  auto& with32 = document.Next<impl::StblBox>();
  EXPECT_NE(dynamic_cast<impl::StcoBox*>(with32.GetChunkOffBox()), nullptr);
}

TEST(Stbl, PrefersTheCo64) {
  // Both at once are refused when the box is completed; here they are only added.
  OpenedStream opened(Box("stbl"));
  const auto header = impl::BoxHeader::Parse(opened.Stream(), nullptr);
  impl::StblBox stbl(&opened.Stream(), header.value(), nullptr);
  EXPECT_EQ(stbl.GetChunkOffBox(), nullptr);
  for (const char* code : {"co64", "stco"}) {
    stbl.AddChildBox(impl::BoxFactory::Instance().CreateBox(&opened.Stream(),
                                                            impl::BoxHeader(Code(code)), nullptr));
  }
  EXPECT_NE(dynamic_cast<impl::Co64Box*>(stbl.GetChunkOffBox()), nullptr);
}

}  // namespace
}  // namespace k7mtest
