#include "boxes/box_header.h"

#include <gtest/gtest.h>

#include "internals/error_of.h"
#include "internals/opened_stream.h"
#include "support/box_builder.h"

namespace qiro::k7m::impl {
namespace {

using k7mtest::Box;
using k7mtest::BoxAsUuid;
using k7mtest::Bytes;
using k7mtest::Code;
using k7mtest::ErrorOf;
using k7mtest::LargeBox;
using k7mtest::LyingBox;
using k7mtest::LyingLargeBox;
using k7mtest::OpenedStream;
using k7mtest::Pattern;
using k7mtest::TillEndBox;
using Codes = std::vector<QiroK7MError>;

std::optional<BoxHeader> ParseAt(OpenedStream& opened, uint64_t offset,
                                 const BoxHeader* parent = nullptr) {
  opened.Stream().SeekTo(offset);
  return BoxHeader::Parse(opened.Stream(), parent);
}

/// A header that covers [begin, end).
BoxHeader Parent(uint64_t begin, uint64_t end) {
  BoxHeader parent(Code("moov"));
  parent.SetTotalBoxSize(end - begin);
  parent.SetBeginOffset(begin);
  return parent;
}

TEST(BoxHeader, ReadsSizeAndType) {
  OpenedStream opened(Pattern(5) + Box("free", Pattern(12)));
  const auto header = ParseAt(opened, 5);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetBoxType(), Code("free"));
  EXPECT_EQ(header->GetTotalBoxSize(), 20U);
  EXPECT_EQ(header->GetBeginOffset(), 5U);
  EXPECT_EQ(header->GetEndOffset(), 25U);
  EXPECT_EQ(header->GetHeaderSize(), 8U);
  EXPECT_FALSE(header->IsExtendedSize());
  EXPECT_FALSE(header->IsBoxTillFileEnd());
  EXPECT_FALSE(header->IsUuidBox());
  EXPECT_EQ(header->GetUuid(), nullptr);
  EXPECT_EQ(opened.Stream().Tell(), 13U);
}

TEST(BoxHeader, SizeOneMeansThatThe64BitSizeFollows) {
  OpenedStream opened(LargeBox("mdat", Pattern(4)));
  const auto header = ParseAt(opened, 0);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetTotalBoxSize(), 20U);
  EXPECT_EQ(header->GetHeaderSize(), 16U);
  EXPECT_TRUE(header->IsExtendedSize());
  EXPECT_EQ(opened.Stream().Tell(), 16U);
}

TEST(BoxHeader, SizeZeroRunsToTheEndOfTheStream) {
  OpenedStream opened(Box("free") + TillEndBox("mdat", Pattern(30)));
  const auto header = ParseAt(opened, 8);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetTotalBoxSize(), 38U);
  EXPECT_EQ(header->GetEndOffset(), 46U);
  EXPECT_TRUE(header->IsBoxTillFileEnd());
  EXPECT_TRUE(opened.Warnings().empty());
}

TEST(BoxHeader, SizeZeroMeasuresAStreamThatHasGrown) {
  OpenedStream opened(TillEndBox("free", Pattern(10)));
  EXPECT_EQ(ParseAt(opened, 0)->GetTotalBoxSize(), 18U);
  opened.Memory().Grow(Pattern(7));
  EXPECT_EQ(ParseAt(opened, 0)->GetTotalBoxSize(), 25U);
}

TEST(BoxHeader, AUuidBoxKeepsItsExtendedType) {
  OpenedStream opened(k7mtest::UuidBox(k7mtest::kMetadataUuid, Pattern(3)));
  const auto header = ParseAt(opened, 0);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetBoxType(), Code("uuid"));
  EXPECT_TRUE(header->IsUuidBox());
  ASSERT_NE(header->GetUuid(), nullptr);
  EXPECT_EQ(*header->GetUuid(), k7mtest::kMetadataUuid);
  EXPECT_EQ(header->GetHeaderSize(), 24U);
}

TEST(BoxHeader, ALargeUuidBoxHasAHeaderOf32Bytes) {
  OpenedStream opened(LargeBox("uuid", k7mtest::UuidBytes(k7mtest::kMetadataUuid), Pattern(3)));
  const auto header = ParseAt(opened, 0);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetHeaderSize(), 32U);
  EXPECT_EQ(opened.Stream().Tell(), 32U);
}

TEST(BoxHeader, AnOrdinaryTypeInUuidFormBecomesThatType) {
  OpenedStream opened(BoxAsUuid("mvhd", Pattern(3)));
  const auto header = ParseAt(opened, 0);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetBoxType(), Code("mvhd"));
  EXPECT_EQ(header->GetHeaderSize(), 24U);
  ASSERT_NE(header->GetUuid(), nullptr);  // Kept either way.
  EXPECT_EQ(*header->GetUuid(), k7mtest::UuidOfCode("mvhd"));
}

TEST(BoxHeader, ACopyHasItsOwnExtendedType) {
  std::optional<BoxHeader> copy;
  {
    OpenedStream opened(k7mtest::UuidBox(k7mtest::kMetadataUuid));
    const auto header = ParseAt(opened, 0);
    ASSERT_TRUE(header);
    copy.emplace(*header);
    EXPECT_NE(copy->GetUuid(), header->GetUuid());
  }
  EXPECT_EQ(*copy->GetUuid(), k7mtest::kMetadataUuid);
  EXPECT_EQ(copy->GetTotalBoxSize(), 24U);
}

TEST(BoxHeader, AtTheEndOfTheStreamThereIsNone) {
  OpenedStream opened(Box("free"));
  EXPECT_FALSE(ParseAt(opened, 8));
  EXPECT_TRUE(opened.Warnings().empty());
}

TEST(BoxHeader, OneToSevenStrayBytesWarnAndEndTheParse) {
  for (size_t stray = 1; stray < 8; ++stray) {
    OpenedStream opened(Box("free") + Pattern(stray));
    EXPECT_FALSE(ParseAt(opened, 8));
    EXPECT_EQ(opened.Warnings(), Codes{3073}) << stray;
  }
}

TEST(BoxHeader, ARefusedWarningAboutStrayBytesAborts) {
  OpenedStream opened(Pattern(3));
  opened.Recorder().RefuseNth(1);
  EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 1028U);
}

TEST(BoxHeader, AnEndThatWrapsMeansNoHeader) {
  OpenedStream opened(Pattern(16) + LyingLargeBox("free", UINT64_MAX, Pattern(4)));
  EXPECT_FALSE(ParseAt(opened, 16));
  EXPECT_TRUE(opened.Warnings().empty());
}

TEST(BoxHeader, ABoxSmallerThanItsHeaderIsError27) {
  for (uint32_t size = 2; size < 8; ++size) {
    OpenedStream opened(LyingBox("free", size, Pattern(20)));
    EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 27U) << size;
  }
  for (uint64_t size = 0; size < 16; ++size) {
    OpenedStream opened(LyingLargeBox("mdat", size, Pattern(20)));
    EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 27U) << size;
  }
  OpenedStream uuid(LyingBox("uuid", 23, Pattern(40)));
  EXPECT_EQ(ErrorOf([&] { ParseAt(uuid, 0); }), 27U);
}

TEST(BoxHeader, ABoxPastTheEndOfTheStreamIsError27) {
  for (const char* code : {"moov", "free", "uuid", "moof"}) {
    OpenedStream opened(LyingBox(code, 61, Pattern(52)));
    EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 27U) << code;
    EXPECT_TRUE(opened.Warnings().empty());
  }
}

TEST(BoxHeader, AnMdatPastTheEndOfTheStreamIsKeptWithAWarning) {
  OpenedStream opened(LyingBox("mdat", 1000, Pattern(52)));
  const auto header = ParseAt(opened, 0);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetTotalBoxSize(), 1000U);
  EXPECT_EQ(opened.Warnings(), Codes{3074});
}

TEST(BoxHeader, ARefusedWarningAboutAnMdatAborts) {
  OpenedStream opened(LyingBox("mdat", 1000, Pattern(52)));
  opened.Recorder().RefuseNth(1);
  EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 1028U);
}

TEST(BoxHeader, ABoxThatReachesIntoAGrownStreamIsAccepted) {
  OpenedStream opened(LyingBox("free", 60, Pattern(30)));
  EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 27U);
  opened.Memory().Grow(Pattern(22));
  EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 0U);
}

TEST(BoxHeader, ABoxPastItsParentIsClippedWithAWarning) {
  OpenedStream opened(Pattern(8) + LyingBox("trak", 100, Pattern(200)));
  const BoxHeader parent = Parent(0, 50);
  const auto header = ParseAt(opened, 8, &parent);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetEndOffset(), 50U);
  EXPECT_EQ(header->GetTotalBoxSize(), 42U);
  EXPECT_EQ(opened.Warnings(), Codes{3075});
}

TEST(BoxHeader, ClippingComesBeforeTheCheckAgainstTheStream) {
  OpenedStream opened(Pattern(8) + LyingBox("trak", 100000, Pattern(42)));
  const BoxHeader parent = Parent(0, 50);
  EXPECT_TRUE(ParseAt(opened, 8, &parent));
  EXPECT_EQ(opened.Warnings(), Codes{3075});
}

TEST(BoxHeader, SizeZeroInsideAParentIsClippedToIt) {
  OpenedStream opened(Pattern(8) + TillEndBox("trak", Pattern(200)));
  const BoxHeader parent = Parent(0, 50);
  const auto header = ParseAt(opened, 8, &parent);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetEndOffset(), 50U);
  EXPECT_TRUE(header->IsBoxTillFileEnd());
  EXPECT_EQ(opened.Warnings(), Codes{3075});
}

TEST(BoxHeader, ABoxClippedToLessThanItsHeaderIsError27) {
  OpenedStream opened(Pattern(8) + LargeBox("trak", Pattern(100)));
  const BoxHeader parent = Parent(0, 20);
  EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 8, &parent); }), 27U);
}

TEST(BoxHeader, EveryTruncationOfAHeaderFailsOrEndsTheParse) {
  const Bytes box = LargeBox("uuid", k7mtest::UuidBytes(k7mtest::kMetadataUuid));
  for (size_t size = 0; size < box.Size(); ++size) {
    OpenedStream opened(Cut(box, size));
    if (size < 8) {
      EXPECT_FALSE(ParseAt(opened, 0)) << size;
    } else {
      EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 5U) << size;
    }
  }
}

TEST(BoxHeader, NoOffsetAboveTheLargestIsSought) {
  for (const uint64_t size : {uint64_t{1} << 63, (uint64_t{1} << 63) + 1, UINT64_MAX - 64}) {
    OpenedStream opened(LyingLargeBox("mdat", size, Pattern(4)));
    EXPECT_EQ(ErrorOf([&] { ParseAt(opened, 0); }), 0U) << size;
    EXPECT_STREQ(opened.Memory().Violation(), nullptr);
    EXPECT_EQ(opened.Warnings(), Codes{3074});
  }
}

std::optional<BoxHeader> SearchAt(OpenedStream& opened, uint64_t offset, uint32_t type,
                                  const BoxHeader* parent = nullptr) {
  opened.Stream().SeekTo(offset);
  return BoxHeader::ParseForBox(opened.Stream(), type, parent);
}

TEST(BoxHeaderSearch, SkipsBoxesOfOtherTypes) {
  OpenedStream opened(Box("free", Pattern(3)) + LargeBox("skip", Pattern(5)) +
                      Box("moov", Pattern(7)) + Box("moov", Pattern(9)));
  const auto header = SearchAt(opened, 0, Code("moov"));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetBeginOffset(), 11U + 21U);
  EXPECT_EQ(header->GetTotalBoxSize(), 15U);
  EXPECT_EQ(opened.Stream().Tell(), header->GetBeginOffset() + 8);
}

TEST(BoxHeaderSearch, StartsAtThePositionWithoutAParent) {
  OpenedStream opened(Box("moov") + Box("moov", Pattern(3)));
  const auto header = SearchAt(opened, 8, Code("moov"));
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetBeginOffset(), 8U);
}

TEST(BoxHeaderSearch, AnyTypeStopsAtTheFirstBox) {
  OpenedStream opened(Box("free", Pattern(3)) + Box("moov"));
  const auto header = SearchAt(opened, 0, kAnyBoxType);
  ASSERT_TRUE(header);
  EXPECT_EQ(header->GetBoxType(), Code("free"));
}

TEST(BoxHeaderSearch, StartsAtTheBeginOfAParentAndEndsWithIt) {
  OpenedStream opened(Pattern(10) + Box("free") + Box("skip", Pattern(2)) + Box("moov"));
  const BoxHeader parent = Parent(10, 28);
  const auto skip = SearchAt(opened, 0, Code("skip"), &parent);
  ASSERT_TRUE(skip);
  EXPECT_EQ(skip->GetBeginOffset(), 18U);
  EXPECT_FALSE(SearchAt(opened, 0, Code("moov"), &parent));
  EXPECT_EQ(opened.Stream().Tell(), 28U);
}

TEST(BoxHeaderSearch, WithoutABoxOfTheTypeTheStreamIsLeftAtItsEnd) {
  OpenedStream opened(Box("free") + Box("skip", Pattern(2)));
  EXPECT_FALSE(SearchAt(opened, 0, Code("moov")));
  EXPECT_EQ(opened.Stream().Tell(), 18U);
  EXPECT_TRUE(opened.Warnings().empty());
}

TEST(BoxHeaderSearch, StrayBytesWarn) {
  for (size_t stray = 1; stray < 8; ++stray) {
    OpenedStream opened(Box("free") + Pattern(stray));
    EXPECT_FALSE(SearchAt(opened, 0, Code("moov")));
    EXPECT_EQ(opened.Warnings(), Codes{3073}) << stray;
    EXPECT_EQ(opened.Stream().Tell(), 8U + stray);
  }
}

TEST(BoxHeaderSearch, SizeZeroIsTheRestOfTheRange) {
  OpenedStream opened(Box("free") + TillEndBox("mdat", Pattern(10)) + Box("moov"));
  EXPECT_FALSE(SearchAt(opened, 0, Code("moov")));
  const auto mdat = SearchAt(opened, 0, Code("mdat"));
  ASSERT_TRUE(mdat);
  EXPECT_EQ(mdat->GetEndOffset(), 34U);
}

TEST(BoxHeaderSearch, TheBoxFoundIsHeldAgainstParentAndStream) {
  OpenedStream past(LyingBox("moov", 100, Pattern(12)));
  EXPECT_EQ(ErrorOf([&] { SearchAt(past, 0, Code("moov")); }), 27U);
  OpenedStream mdat(LyingBox("mdat", 100, Pattern(12)));
  EXPECT_TRUE(SearchAt(mdat, 0, Code("mdat")));
  EXPECT_EQ(mdat.Warnings(), Codes{3074});
  OpenedStream inside(LyingBox("trak", 100, Pattern(200)));
  const BoxHeader parent = Parent(0, 50);
  const auto clipped = SearchAt(inside, 0, Code("trak"), &parent);
  ASSERT_TRUE(clipped);
  EXPECT_EQ(clipped->GetEndOffset(), 50U);
  EXPECT_EQ(inside.Warnings(), Codes{3075});
}

TEST(BoxHeaderSearch, NeverGoesBackwardsOrLoops) {
  for (uint32_t size = 2; size < 8; ++size) {
    OpenedStream opened(LyingBox("free", size, Pattern(20)));
    EXPECT_EQ(ErrorOf([&] { SearchAt(opened, 0, Code("moov")); }), 27U) << size;
  }
  for (const uint64_t size : {uint64_t{0}, uint64_t{15}}) {
    OpenedStream opened(LyingLargeBox("free", size, Pattern(20)));
    EXPECT_EQ(ErrorOf([&] { SearchAt(opened, 0, Code("moov")); }), 27U) << size;
  }
  OpenedStream wraps(Pattern(8) + LyingLargeBox("free", UINT64_MAX, Pattern(20)));
  EXPECT_FALSE(SearchAt(wraps, 8, Code("moov")));
  OpenedStream huge(LyingLargeBox("free", UINT64_MAX - 1, Pattern(20)));
  EXPECT_FALSE(SearchAt(huge, 0, Code("moov")));
  EXPECT_STREQ(huge.Memory().Violation(), nullptr);
}

TEST(BoxHeader, SettersMoveTheEndAlong) {
  BoxHeader header(Code("free"));
  EXPECT_EQ(header.GetEndOffset(), 8U);
  header.SetBeginOffset(100);
  header.SetTotalBoxSize(30);
  EXPECT_EQ(header.GetEndOffset(), 130U);
  header.SetBoxType(Code("skip"));
  EXPECT_EQ(header.GetBoxType(), Code("skip"));
  header.SetExtendedSize(true);
  EXPECT_EQ(header.GetHeaderSize(), 16U);
  header.SetUuid(k7mtest::kMetadataUuid);
  EXPECT_EQ(header.GetHeaderSize(), 32U);
}

}  // namespace
}  // namespace qiro::k7m::impl
