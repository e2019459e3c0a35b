#include "boxes/root_box.h"
#include "boxes/movie_extends_boxes.h"

#include <gtest/gtest.h>

#include <optional>

#include "boxes/box_iterators.h"
#include "boxes/track_boxes.h"
#include "boxes/uuid_boxes.h"
#include "internals/document.h"
#include "support/counting_allocator.h"

namespace k7mtest {
namespace {

TEST(RootBox, GivesTheTopLevelBoxesOneByOne) {
  Document document(Box("ftyp", Ftyp{}) + Box("free", Pattern(3)) + MinimalMoov() +
                    Box("mdat", Pattern(9)));
  EXPECT_EQ(TypeOf(document.Next()), Code("ftyp"));
  EXPECT_EQ(document.Root().Children().size(), 1U);
  EXPECT_EQ(TypeOf(document.Next()), Code("free"));
  EXPECT_EQ(TypeOf(document.Next()), Code("moov"));
  EXPECT_EQ(TypeOf(document.Next()), Code("mdat"));
  EXPECT_EQ(document.Next(), nullptr);
  EXPECT_EQ(document.Next(), nullptr);
  EXPECT_EQ(document.Root().Children().size(), 4U);
  EXPECT_TRUE(document.Warnings().empty());
}

TEST(RootBox, CoversWhatWasParsed) {
  const Bytes ftyp = Box("ftyp", Ftyp{});
  Document document(ftyp + Box("free"));
  EXPECT_EQ(document.Root().GetEndOffset(), 0U);
  document.Next();
  EXPECT_EQ(document.Root().GetEndOffset(), ftyp.Size());
  document.Next();
  EXPECT_EQ(document.Root().GetTotalSize(), ftyp.Size() + 8);
}

TEST(RootBox, AnEmptyStreamHasNoBoxes) {
  Document document(Bytes{});
  EXPECT_EQ(document.Next(), nullptr);
  EXPECT_EQ(document.Root().GetMoovBox(), nullptr);
  EXPECT_EQ(document.Root().GetMovieHeader(), nullptr);
  EXPECT_EQ(document.Root().GetMvexBox(), nullptr);
  EXPECT_EQ(document.Root().GetUlbDataBox(), nullptr);
}

TEST(RootBox, StrayBytesAtTheEndWarnAndEndTheParse) {
  Document document(Box("free") + Pattern(3));
  document.ParseAll();
  EXPECT_EQ(document.Warnings(), Codes{3073});
  EXPECT_EQ(document.Root().Children().size(), 1U);
}

TEST(RootBox, AnMdatPastTheEndIsKeptAndTheLast) {
  Document document(Box("free") + LyingBox("mdat", 5000, Pattern(10)));
  document.ParseAll();
  EXPECT_EQ(document.Root().Children().size(), 2U);
  EXPECT_EQ(document.Warnings(), Codes{3074});
}

TEST(RootBox, AMoovPastTheEndIsError27) {
  const Bytes moov = MinimalMoov();
  EXPECT_EQ(ParseError(Cut(moov, moov.Size() - 1)), 27U);
  EXPECT_EQ(ParseError(moov), 0U);
}

TEST(RootBox, ABoxThatRunsToTheEndIsTheLast) {
  Document document(Box("free") + TillEndBox("mdat", Pattern(100)));
  document.ParseAll();
  EXPECT_EQ(document.Root().Children().size(), 2U);
  EXPECT_EQ(document.Root().GetEndOffset(), 116U);
  EXPECT_TRUE(document.Warnings().empty());
}

TEST(RootBox, ABoxThatReachesPastTheLargestOffsetEndsTheParse) {
  for (const uint64_t size : {uint64_t{1} << 63, UINT64_MAX - 1000}) {
    Document document(Box("free") + LyingLargeBox("mdat", size, Pattern(10)));
    document.ParseAll();
    EXPECT_EQ(document.Root().Children().size(), 2U);
    EXPECT_STREQ(document.Opened().Memory().Violation(), nullptr);
  }
}

TEST(RootBox, ABoxThatReachesPastTheLargestOffsetEndsTheParseOfAStreamThatClaimsToBeLonger) {
  Document document(Box("free") + LyingLargeBox("mdat", uint64_t{1} << 63, Pattern(10)));
  document.Opened().Memory().ClaimLength(UINT64_MAX);
  document.ParseAll();
  EXPECT_EQ(document.Root().Children().size(), 2U);
  EXPECT_EQ(document.Warnings(), Codes{});
}

TEST(RootBox, AnEndThatWrapsEndsTheParse) {
  Document document(Box("free") + LyingLargeBox("mdat", UINT64_MAX, Pattern(10)));
  document.ParseAll();
  EXPECT_EQ(document.Root().Children().size(), 1U);
}

TEST(RootBox, AGrowingFileGivesFurtherBoxes) {
  Document document(Box("free"));
  document.ParseAll();
  document.Opened().Memory().Grow(Box("skip"));
  EXPECT_EQ(TypeOf(document.Next()), Code("skip"));
}

TEST(RootBox, GetMoovBoxParsesOnUntilItIsFound) {
  Document document(Box("ftyp", Ftyp{}) + MinimalMoov() + Box("mdat"));
  auto* moov = document.Root().GetMoovBox();
  ASSERT_NE(moov, nullptr);
  EXPECT_EQ(document.Root().Children().size(), 2U);
  EXPECT_EQ(document.Root().GetMoovBox(), moov);
  EXPECT_EQ(document.Root().GetMovieHeader(), moov->GetMovieHeader());
  EXPECT_EQ(document.Root().GetMvexBox(), nullptr);
}

TEST(RootBox, FindsTheMvexOfTheMovie) {
  Document document(
      Box("moov", FullBox("mvhd", 0, 0, Mvhd{}), MinimalTrak(), Box("mvex", Pattern(4))));
  EXPECT_EQ(TypeOf(document.Root().GetMvexBox()), Code("mvex"));
}

TEST(RootBox, TheMetadataBoxIsTheFirstOneInFileOrder) {
  const Bytes first = UuidBox(kMetadataUuid, Pattern(5, 1));
  const Bytes second = UuidBox(kMetadataUuid, Pattern(9, 2));
  Document document(Box("free") + UuidBox(UuidOfCode("abcd")) + first + second);
  document.ParseAll();
  auto* metadata = document.Root().GetUlbDataBox();
  ASSERT_NE(metadata, nullptr);
  EXPECT_EQ(metadata->GetUlbDataLen(), 5U);
}

TEST(RootBox, AskingForTheMetadataBoxParsesOnUntilItIsFound) {
  Document document(Box("free") + Box("skip") + UuidBox(kMetadataUuid, Pattern(5)) + Box("mdat"));
  document.Next();
  ASSERT_NE(document.Root().GetUlbDataBox(), nullptr);
  EXPECT_EQ(document.Root().Children().size(), 3U);
}

TEST(RootBox, AskingForAMissingMetadataBoxParsesTheWholeFile) {
  Document document(Box("free") + Box("skip") + Box("mdat"));
  EXPECT_EQ(document.Root().GetUlbDataBox(), nullptr);
  EXPECT_EQ(document.Root().Children().size(), 3U);
}

TEST(RootBox, GetBoxByPosParsesOn) {
  Document document(Box("free") + Box("skip") + Box("mdat"));
  EXPECT_EQ(TypeOf(document.Root().GetBoxByPos(1)), Code("skip"));
  EXPECT_EQ(document.Root().Children().size(), 2U);
  EXPECT_EQ(document.Root().GetBoxByPos(3), nullptr);
}

// A fragment in front of the movie box
// ---------------------------------------------------------------

Bytes Moof() { return Box("moof", FullBox("mfhd", 0, 0, Mfhd{})); }

TEST(RootBoxLookAhead, AMoofBeforeTheMovieFindsTheMovieFirst) {
  Document document(Moof() + Box("mdat", Pattern(5)) + MinimalMoov());
  EXPECT_EQ(TypeOf(document.Next()), Code("moof"));
  auto* moov = document.Root().GetMoovBox();
  ASSERT_NE(moov, nullptr);
  EXPECT_EQ(document.Root().Children().size(), 1U);
  EXPECT_EQ(moov->GetTracks().size(), 1U);
  EXPECT_EQ(TypeOf(document.Next()), Code("mdat"));
  EXPECT_EQ(document.Next(), moov);  // The held one, in its place.
  EXPECT_EQ(document.Next(), nullptr);
}

TEST(RootBoxLookAhead, AMoofWithoutAnyMovieIsError6) {
  EXPECT_EQ(ParseError(Moof() + Box("mdat", Pattern(5))), 6U);
  EXPECT_EQ(ParseError(Moof()), 6U);
}

TEST(RootBoxLookAhead, AnInvalidMovieAheadIsItsError) {
  EXPECT_EQ(ParseError(Moof() + Box("moov")), 14U);
}

TEST(RootBox, ASecondMovieBoxIsError36) {
  EXPECT_EQ(ParseError(MinimalMoov() + Box("free") + MinimalMoov()), 36U);
  EXPECT_EQ(ParseError(Moof() + MinimalMoov() + MinimalMoov()), 36U);
}

TEST(RootBoxLookAhead, TheHeldMovieSurvivesAFailureToTakeItsPlace) {
  const Bytes file = Moof() + MinimalMoov();
  for (uint64_t n = 1; n < 50; ++n) {
    CountingAllocator counter;
    const QiroK7MAllocatorCallBacks record = counter.Record();
    Document document(file, &record);
    ASSERT_EQ(TypeOf(document.Next()), Code("moof"));
    counter.FailNth(n);
    try {
      document.Next();
    } catch (const std::bad_alloc&) {
    }
    const bool wasHit = counter.FaultHit();
    counter.FailNth(0);
    ASSERT_NE(document.Root().GetMovieHeader(), nullptr);
    EXPECT_EQ(document.Root().GetMovieHeader()->GetTimeScale(), 600U);
    document.ParseAll();
    EXPECT_EQ(document.Root().Children().size(), 2U);
    if (!wasHit) {
      EXPECT_GT(n, 1U);
      return;
    }
  }
  FAIL() << "the fault was always hit";
}

// Children
// -----------------------------------------------------------------------------------------

TEST(ParseBox, ChildrenStandInFileOrderWithTheirOffsets) {
  Document document(Box("free") + Box("tref", Box("aaaa", Pattern(3)), Box("bbbb")));
  document.Next();
  const auto& tref = *document.Next();
  ASSERT_EQ(tref.Children().size(), 2U);
  EXPECT_EQ(tref.Children()[0]->GetBoxType(), Code("aaaa"));
  EXPECT_EQ(tref.Children()[0]->GetBeginOffset(), 16U);
  EXPECT_EQ(tref.Children()[1]->GetBoxType(), Code("bbbb"));
  EXPECT_EQ(tref.Children()[1]->GetBeginOffset(), 27U);
}

TEST(ParseBox, OnlyContainersHaveChildren) {
  for (const char* code : {"udta", "free", "mdat", "meta", "mfra"}) {
    Document document(Box(code, Box("aaaa"), Pattern(3)));
    EXPECT_TRUE(document.Next()->Children().empty()) << code;
    EXPECT_TRUE(document.Warnings().empty());
  }
}

TEST(ParseBox, OneToSevenBytesBehindTheChildrenAreIgnoredSilently) {
  for (size_t stray = 1; stray < 8; ++stray) {
    Document document(Box("tref", Box("aaaa"), Pattern(stray)) + Box("free"));
    EXPECT_EQ(document.Next()->Children().size(), 1U);
    EXPECT_EQ(TypeOf(document.Next()), Code("free"));
    EXPECT_TRUE(document.Warnings().empty());
  }
}

TEST(ParseBox, AChildPastItsParentIsClippedWithAWarning) {
  Document document(Box("tref", LyingBox("aaaa", 100, Pattern(10))) + Box("free", Pattern(200)));
  const auto& tref = *document.Next();
  ASSERT_EQ(tref.Children().size(), 1U);
  EXPECT_EQ(tref.Children()[0]->GetTotalBoxSize(), 18U);
  EXPECT_EQ(tref.Children()[0]->GetEndOffset(), 26U);
  EXPECT_EQ(document.Warnings(), Codes{3075});
  EXPECT_EQ(TypeOf(document.Next()), Code("free"));
}

TEST(ParseBox, AChildWhoseEndWrapsEndsTheChildrenSilently) {
  Document document(
      Box("tref", Box("aaaa"), LyingLargeBox("bbbb", UINT64_MAX - 10, Pattern(9)), Box("cccc")) +
      Box("free"));
  EXPECT_EQ(document.Next()->Children().size(), 1U);
  EXPECT_EQ(TypeOf(document.Next()), Code("free"));
  EXPECT_TRUE(document.Warnings().empty());
}

TEST(ParseBox, AChildSmallerThanItsHeaderIsError27) {
  for (uint32_t size = 2; size < 8; ++size) {
    EXPECT_EQ(ParseError(Box("tref", LyingBox("aaaa", size, Pattern(20)))), 27U) << size;
  }
}

TEST(ParseBox, AKnownTypeGetsItsClassWhereverItStands) {
  Document document(Box("tref", FullBox("mvhd", 0, 0, Mvhd{.timeScale = 77})));
  auto* mvhd = dynamic_cast<impl::MvhdBox*>(document.Next()->Children()[0].get());
  ASSERT_NE(mvhd, nullptr);
  EXPECT_EQ(mvhd->GetTimeScale(), 77U);
}

TEST(ParseBox, ContainersInUuidAndLargeFormHaveTheirChildren) {
  Document document(BoxAsUuid("tref", Box("aaaa")) + LargeBox("tref", Box("bbbb")));
  EXPECT_EQ(document.Next()->Children().at(0)->GetBoxType(), Code("aaaa"));
  EXPECT_EQ(document.Next()->Children().at(0)->GetBoxType(), Code("bbbb"));
}

/// `levels` boxes inside each other, the innermost one without children.
Bytes Nested(int levels) {
  Bytes box = Box("tref");
  for (int i = 1; i < levels; ++i) {
    box = Box("tref", box);
  }
  return box;
}

TEST(ParseBox, BoxesMayNest32LevelsDeep) {
  EXPECT_EQ(ParseError(Nested(32)), 0U);
  EXPECT_EQ(ParseError(Nested(33)), 14U);
  EXPECT_EQ(ParseError(Nested(2000)), 14U);
}

// Iterators
// ----------------------------------------------------------------------------------------

struct Family {
  Family() : document(Box("tref", Box("aaaa"), Box("bbbb"), Box("aaaa", Pattern(1)), Box("cccc"))) {
    box = document.Next();
  }
  Document document;
  impl::Box* box;
};

template <class Iterator>
std::vector<uint64_t> Offsets(Iterator iterator) {
  std::vector<uint64_t> offsets;
  for (; iterator.HasMoreEntries(); ++iterator) {
    EXPECT_EQ(*iterator, iterator.operator->());
    offsets.push_back(iterator->GetBeginOffset());
  }
  return offsets;
}

using Numbers = std::vector<uint64_t>;

TEST(BoxIterator, WalksTheChildrenFromItsStart) {
  Family family;
  EXPECT_EQ(Offsets(impl::BoxIterator(family.box, 0)), (Numbers{8, 16, 24, 33}));
  EXPECT_EQ(Offsets(impl::BoxIterator(family.box, 3)), Numbers{33});
  EXPECT_EQ(Offsets(impl::BoxIterator(family.box, 4)), Numbers{});
  EXPECT_EQ(Offsets(impl::BoxIterator()), Numbers{});
}

TEST(BoxIterator, ByTypeSkipsTheOthers) {
  Family family;
  EXPECT_EQ(Offsets(impl::BoxIteratorByType(family.box, 0, Code("aaaa"))), (Numbers{8, 24}));
  EXPECT_EQ(Offsets(impl::BoxIteratorByType(family.box, 1, Code("aaaa"))), Numbers{24});
  EXPECT_EQ(Offsets(impl::BoxIteratorByType(family.box, 0, Code("zzzz"))), Numbers{});
}

TEST(BoxIterator, ReverseWalksFromTheLastChild) {
  Family family;
  EXPECT_EQ(Offsets(impl::ReverseBoxIterator(family.box)), (Numbers{33, 24, 16, 8}));
  EXPECT_EQ(Offsets(impl::ReverseBoxIteratorByType(family.box, Code("aaaa"))), (Numbers{24, 8}));
}

TEST(RootBox, ATrackFragmentInFrontOfTheMovieBoxOutsideAFragmentIs14) {
  const Bytes traf = Box("traf", FullBox("tfhd", 0, 0, Tfhd{}));
  for (const Bytes& box : {traf, Box("edts", traf),
                           Box("moov", FullBox("mvhd", 0, 0, Mvhd{}), Box("trak", traf), traf)}) {
    Document document(box + MinimalMoov());
    EXPECT_EQ(ErrorOf([&document] { document.Next(); }), 14U);
  }
  Document nested(Box("edts", Box("moof", FullBox("mfhd", 0, 0, Mfhd{}), traf)) + MinimalMoov());
  EXPECT_EQ(ErrorOf([&nested] { nested.Next(); }), 14U);
}

TEST(BoxIterator, CopiesAreIndependent) {
  Family family;
  impl::BoxIterator first(family.box, 0);
  impl::BoxIterator second = first;
  ++second;
  EXPECT_EQ(first->GetBeginOffset(), 8U);
  first = second;
  EXPECT_EQ(first->GetBeginOffset(), 16U);
}

TEST(Box, CountsAndFindsItsChildrenByType) {
  Family family;
  EXPECT_EQ(family.box->CountOccurances(Code("aaaa")), 2U);
  EXPECT_EQ(family.box->CountOccurances(Code("zzzz")), 0U);
  const uint32_t list[] = {Code("aaaa"), Code("cccc"), Code("zzzz")};
  EXPECT_EQ(family.box->CountOccurancesInList(list), 3U);
  EXPECT_EQ(family.box->GetFirstBoxByType(Code("aaaa"))->GetBeginOffset(), 8U);
  EXPECT_EQ(family.box->GetFirstBoxByType(Code("zzzz")), nullptr);
  EXPECT_EQ(family.box->GetBoxByPos(1)->GetBoxType(), Code("bbbb"));
  EXPECT_EQ(family.box->GetBoxByPos(4), nullptr);
}

}  // namespace
}  // namespace k7mtest
