#include "boxes/box_factory.h"

#include <gtest/gtest.h>

#include <set>
#include <typeinfo>

#include "boxes/fragment_boxes.h"
#include "boxes/ftyp_box.h"
#include "boxes/mdat_box.h"
#include "boxes/media_boxes.h"
#include "boxes/skip_box.h"
#include "boxes/stbl_box.h"
#include "boxes/track_boxes.h"
#include "boxes/uuid_boxes.h"
#include "internals/document.h"
#include "support/counting_allocator.h"

namespace k7mtest {
namespace {

const impl::BoxFactory& Factory() { return impl::BoxFactory::Instance(); }

/// What the factory makes of the header of these bytes.
std::unique_ptr<impl::Box> Make(OpenedStream& opened,
                                const QiroK7MAllocatorCallBacks* allocator = nullptr) {
  const auto header = impl::BoxHeader::Parse(opened.Stream(), nullptr);
  return Factory().CreateBox(&opened.Stream(), header.value(), allocator);
}

template <class T>
void ExpectClass(const char* code) {
  OpenedStream opened(FullBox(code, 0, 0, Pattern(40)));
  const auto box = Make(opened);
  const impl::Box& made = *box;
  EXPECT_EQ(typeid(made), typeid(T)) << code;
  EXPECT_EQ(box->GetBoxType(), Code(code));
}

TEST(BoxFactory, GivesEachTypeItsClass) {
  ExpectClass<impl::Co64Box>("co64");
  ExpectClass<impl::CttsBox>("ctts");
  ExpectClass<impl::DinfBox>("dinf");
  ExpectClass<impl::DrefBox>("dref");
  ExpectClass<impl::EdtsBox>("edts");
  ExpectClass<impl::ElstBox>("elst");
  ExpectClass<impl::FtypBox>("ftyp");
  ExpectClass<impl::HdlrBox>("hdlr");
  ExpectClass<impl::HintBox>("hint");
  ExpectClass<impl::MdatBox>("mdat");
  ExpectClass<impl::MdhdBox>("mdhd");
  ExpectClass<impl::MdiaBox>("mdia");
  ExpectClass<impl::MinfBox>("minf");
  ExpectClass<impl::MoovBox>("moov");
  ExpectClass<impl::MvexBox>("mvex");
  ExpectClass<impl::MvhdBox>("mvhd");
  ExpectClass<impl::NmhdBox>("nmhd");
  ExpectClass<impl::SdtpBox>("sdtp");
  ExpectClass<impl::SkipBox>("skip");
  ExpectClass<impl::SmhdBox>("smhd");
  ExpectClass<impl::StblBox>("stbl");
  ExpectClass<impl::StcoBox>("stco");
  ExpectClass<impl::StscBox>("stsc");
  ExpectClass<impl::StsdBox>("stsd");
  ExpectClass<impl::StssBox>("stss");
  ExpectClass<impl::StszBox>("stsz");
  ExpectClass<impl::SttsBox>("stts");
  ExpectClass<impl::TkhdBox>("tkhd");
  ExpectClass<impl::TrakBox>("trak");
  ExpectClass<impl::TrefBox>("tref");
  ExpectClass<impl::UrlBox>("url ");
  ExpectClass<impl::VmhdBox>("vmhd");
}

TEST(BoxFactory, MakesAPlainBoxOfEveryOtherType) {
  for (const char* code :
       {"free", "pdin", "udta", "afra", "abst", "mfra", "hmhd", "meta", "zzzz"}) {
    ExpectClass<impl::Box>(code);
  }
}

TEST(BoxFactory, TellsTheMetadataBoxFromOtherUuidBoxesByTheExtendedType) {
  OpenedStream metadata(UuidBox(kMetadataUuid, Pattern(5)));
  const auto ulb = Make(metadata);
  EXPECT_NE(dynamic_cast<impl::UlbDataBox*>(ulb.get()), nullptr);

  Uuid other = kMetadataUuid;
  other[15] ^= 1;
  OpenedStream opaque(UuidBox(other, Pattern(5)));
  const auto uuid = Make(opaque);
  EXPECT_EQ(dynamic_cast<impl::UlbDataBox*>(uuid.get()), nullptr);
  EXPECT_NE(dynamic_cast<impl::UuidBox*>(uuid.get()), nullptr);
}

TEST(BoxFactory, AnOrdinaryTypeInUuidFormGetsItsClass) {
  OpenedStream opened(BoxAsUuid("mvhd", Bytes().Fill(100)));
  const auto box = Make(opened);
  EXPECT_NE(dynamic_cast<impl::MvhdBox*>(box.get()), nullptr);
}

TEST(BoxFactory, KnowsExactly38Types) {
  const std::set<std::string> known = {
      "co64", "ctts", "dinf", "dref", "edts", "elst", "ftyp", "hdlr", "mdat", "mdhd",
      "mdia", "mehd", "mfhd", "minf", "moof", "moov", "mvex", "mvhd", "nmhd", "pdin",
      "sdtp", "skip", "smhd", "stbl", "stco", "stsc", "stsd", "stss", "stsz", "stts",
      "tfhd", "tkhd", "traf", "trak", "trex", "trun", "url ", "vmhd"};
  ASSERT_EQ(known.size(), 38U);
  for (const std::string& code : known) {
    EXPECT_TRUE(Factory().IsKnownBox(Code(code))) << code;
  }
  for (const char* code : {"hint", "tref", "uuid", "free", "hmhd", "udta", "afra", "abst", "mfra",
                           "tfra", "mfro", "meta", "iods", "tfdt", "sidx"}) {
    EXPECT_FALSE(Factory().IsKnownBox(Code(code))) << code;
  }
}

TEST(BoxFactory, PdinIsKnownWithoutAClassAndHintTrefUuidHaveAClassWithoutBeingKnown) {
  EXPECT_TRUE(Factory().IsKnownBox(Code("pdin")));
  ExpectClass<impl::Box>("pdin");
  for (const char* code : {"hint", "tref", "uuid"}) {
    EXPECT_FALSE(Factory().IsKnownBox(Code(code)));
  }
}

TEST(BoxFactory, OnlySkipAndFreeAreSkipBoxes) {
  for (const char* code : {"skip", "free"}) {
    EXPECT_TRUE(impl::BoxFactory::IsSkipBox(impl::BoxHeader(Code(code)))) << code;
  }
  for (const char* code : {"wide", "mdat", "zzzz", "FREE"}) {
    EXPECT_FALSE(impl::BoxFactory::IsSkipBox(impl::BoxHeader(Code(code)))) << code;
  }
}

TEST(BoxFactory, AFreeAndAnUnknownBoxAreBothPlain) {
  ExpectClass<impl::Box>("free");
  ExpectClass<impl::Box>("zzzz");
}

TEST(BoxFactory, BoxesComeFromTheClientsMemory) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  OpenedStream opened(Box("free", Pattern(8)));
  auto box = Make(opened, &record);
  EXPECT_EQ(counter.LiveBlocks(), 1U);
  EXPECT_EQ(box->GetAllocator()->clientData, &counter);
  box.reset();
  EXPECT_EQ(counter.LiveBlocks(), 0U);
  EXPECT_EQ(counter.BadReleases(), 0U);
}

TEST(BoxFactory, AThrowingConstructorGivesTheMemoryBack) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  OpenedStream dref(FullBox("dref", 2, 0, Dref{}));
  EXPECT_EQ(ErrorOf([&] { Make(dref, &record); }), 1029U);
  OpenedStream elst(FullBox("elst", 0, 0));
  EXPECT_EQ(ErrorOf([&] { Make(elst, &record); }), 27U);
  EXPECT_EQ(counter.Allocations(), 2U);
  EXPECT_EQ(counter.LiveBlocks(), 0U);
  EXPECT_EQ(counter.BadReleases(), 0U);
}

// TypeOfFirstBox
// ------------------------------------------------------------------------------------

struct Closed {
  explicit Closed(const Bytes& bytes)
      : memory(bytes), stream(memory.Reading(), impl::WarningHandler()) {}
  uint32_t Type() { return Factory().TypeOfFirstBox(stream); }
  MemoryStream memory;
  impl::QiroK7MIStream stream;
};

TEST(TypeOfFirstBox, OpensReadsAndCloses) {
  Closed closed(Box("ftyp", Ftyp{}));
  EXPECT_EQ(closed.Type(), Code("ftyp"));
  EXPECT_FALSE(closed.memory.IsOpen());
  EXPECT_EQ(closed.memory.Count(Call::kOpen), 1U);
  EXPECT_EQ(closed.memory.Count(Call::kClose), 1U);
  EXPECT_STREQ(closed.memory.Violation(), nullptr);
}

TEST(TypeOfFirstBox, OfFewerThan8BytesIsZeroAndLeavesTheStreamClosed) {
  for (size_t size = 0; size < 8; ++size) {
    Closed closed(Cut(Box("ftyp", Ftyp{}), size));
    EXPECT_EQ(closed.Type(), 0U) << size;
    EXPECT_FALSE(closed.memory.IsOpen());
    EXPECT_EQ(closed.memory.Count(Call::kClose), 1U);
  }
}

TEST(TypeOfFirstBox, IsReadAtOffsetZeroWhateverTheSize) {
  for (const uint32_t size : {0U, 1U, 3U, 0xFFFFFFFFU}) {
    Closed closed(LyingBox("moov", size));
    EXPECT_EQ(closed.Type(), Code("moov"));
  }
}

TEST(TypeOfFirstBox, AShortReadIsError5AndCloses) {
  Closed closed(Box("ftyp", Ftyp{}));
  closed.memory.LimitReads(3);
  EXPECT_EQ(ErrorOf([&] { closed.Type(); }), 5U);
  EXPECT_FALSE(closed.memory.IsOpen());
}

TEST(TypeOfFirstBox, AnyFailureClosesWithoutThrowingAndPasses) {
  for (const Call call : {Call::kRead, Call::kSeek, Call::kTell}) {
    for (uint64_t n = 1; n < 10; ++n) {
      Closed closed(Box("ftyp", Ftyp{}));
      closed.memory.FailNth(call, n, 4711);
      const QiroK7MError error = ErrorOf([&] { closed.Type(); });
      EXPECT_EQ(error, closed.memory.FaultHit() ? 4711U : 0U);
      EXPECT_FALSE(closed.memory.IsOpen());
      EXPECT_EQ(closed.memory.Count(Call::kClose), 1U);
    }
  }
}

TEST(TypeOfFirstBox, AFailingOpenClosesToo) {
  Closed closed(Box("ftyp", Ftyp{}));
  closed.memory.FailNth(Call::kOpen, 1, 4711);
  EXPECT_EQ(ErrorOf([&] { closed.Type(); }), 4711U);
  EXPECT_EQ(closed.memory.Count(Call::kClose), 1U);
}

TEST(TypeOfFirstBox, AFailingCloseIsTheResult) {
  Closed closed(Box("ftyp", Ftyp{}));
  closed.memory.FailNth(Call::kClose, 1, 4711);
  EXPECT_EQ(ErrorOf([&] { closed.Type(); }), 4711U);
  EXPECT_EQ(closed.memory.Count(Call::kClose), 1U);
}

}  // namespace
}  // namespace k7mtest
