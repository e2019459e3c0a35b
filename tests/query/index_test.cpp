// With an index: every layout of it, and what it can say.
#include <gtest/gtest.h>

#include "support/fragment_file.h"
#include "support/opened_servicer.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kBadIndex = kQiroK7MErrorBadFragmentIndex;
constexpr QiroK7MError kNotFound = kQiroK7MErrorFragmentNotFound;
constexpr QiroK7MError kNotAvailable = kQiroK7MErrorFragmentNotAvailable;
constexpr QiroK7MError kPastTheEnd = kQiroK7MErrorReadFailed;
constexpr uint64_t kAllOnes = ~uint64_t{0};

/// Widths and reserved bits in every combination.
std::vector<Afra> AllLayouts() {
  std::vector<Afra> layouts;
  for (const bool hasLongIds : {false, true}) {
    for (const bool hasLongOffsets : {false, true}) {
      for (const uint8_t reserved : {uint8_t{0x00}, uint8_t{0x1F}}) {
        layouts.push_back(
            {.hasLongIds = hasLongIds, .hasLongOffsets = hasLongOffsets, .reservedBits = reserved});
      }
    }
  }
  return layouts;
}

void ExpectAllServed(const FragmentFile& file, const Bytes& index, uint32_t firstFragment = 1,
                     uint32_t segment = 1) {
  OpenedServicer servicer(file.bytes, index);
  ASSERT_EQ(servicer.Result(), 0u);
  for (uint32_t i = 0; i < file.fragments.size(); ++i) {
    const Answer answer = servicer.Get(firstFragment + i, segment);
    EXPECT_EQ(answer.result, 0u) << i;
    EXPECT_EQ(answer.data, file.fragments[i]) << i;
  }
  const auto behind = firstFragment + static_cast<uint32_t>(file.fragments.size());
  EXPECT_EQ(servicer.Get(behind, segment).result, kNotFound);
}

// Local entries
// ---------------------------------------------------------------------------------------

TEST(LocalEntries, ServeEveryFragmentInEveryLayout) {
  const FragmentFile file = SomeFragments(5);
  for (const Afra& layout : AllLayouts()) ExpectAllServed(file, LocalIndex(file, layout));
}

TEST(LocalEntries, ComeBeforeGlobalOnes) {
  const FragmentFile file = SomeFragments(3);
  for (Afra layout : AllLayouts()) {
    layout.globals = {{.segment = 9, .fragment = 1, .afraOffset = 5}, {.fragment = 4}};
    ExpectAllServed(file, LocalIndex(file, layout));
  }
}

TEST(LocalEntries, ThreeOfThemServeFragment3AndNot4) {
  const FragmentFile file = SomeFragments(3);
  OpenedServicer servicer(file.bytes, LocalIndex(file));
  EXPECT_EQ(servicer.Get(3).data, file.fragments[2]);
  EXPECT_EQ(servicer.Get(4).result, kNotFound);
  EXPECT_EQ(servicer.Get(0xFFFFFFFF).result, kNotFound);
}

TEST(LocalEntries, FragmentAndSegment0AreRefused_Errors1024And1027) {
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(file.bytes, LocalIndex(file));
  const uint64_t calls = servicer.Index().Count(Call::kAny);
  EXPECT_EQ(servicer.Get(0, 1).result, kNotFound);
  EXPECT_EQ(servicer.Get(1, 0).result, kQiroK7MErrorInvalidSegmentNumber);
  EXPECT_EQ(servicer.Get(0, 0).result, kNotFound) << "the fragment number comes first";
  EXPECT_EQ(servicer.Index().Count(Call::kAny), calls) << "before anything is read";
  EXPECT_EQ(servicer.Get(1, 1).data, file.fragments[0]);
}

TEST(LocalEntries, TheSegmentNumberIsNotConsulted) {
  const FragmentFile file = SomeFragments(2);
  OpenedServicer servicer(file.bytes, LocalIndex(file));
  for (const uint32_t segment : {1u, 2u, 0xFFFFFFFFu}) {
    EXPECT_EQ(servicer.Get(2, segment).data, file.fragments[1]);
  }
}

TEST(LocalEntries, AnOffsetOfAllOnes_Error26AndNoBuffer) {
  const FragmentFile file = SomeFragments(3);
  for (Afra layout : AllLayouts()) {
    layout.locals = {{.offset = file.offsets[0]}, {.offset = kAllOnes}};
    OpenedServicer servicer(file.bytes, AfraBox(layout));
    const uint64_t calls = servicer.File().Count(Call::kAny);
    const Answer answer = servicer.Get(2);
    EXPECT_EQ(answer.result, kNotAvailable);
    EXPECT_TRUE(answer.isNull);
    EXPECT_EQ(servicer.File().Count(Call::kAny), calls);
    EXPECT_EQ(servicer.Get(1).data, file.fragments[0]);
  }
}

TEST(LocalEntries, ThirtyTwoOnesInALongOffsetAreAnOffset) {
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(file.bytes, AfraBox({.locals = {{.offset = 0xFFFFFFFF}}}));
  EXPECT_EQ(servicer.Get(1).result, kPastTheEnd);
}

TEST(LocalEntries, MoreThanTheIndexHolds_Error5) {
  const FragmentFile file = SomeFragments(2);
  Afra layout;
  layout.localCount = 0xFFFFFFFF;
  OpenedServicer servicer(file.bytes, LocalIndex(file, layout));
  EXPECT_EQ(servicer.Get(2).data, file.fragments[1]);
  for (const uint32_t number : {3u, 1000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(servicer.Get(number).result, kPastTheEnd) << number;
  }
  EXPECT_LE(servicer.Index().GreatestOffset(), servicer.Index().Length());
}

// Global entries
// ---------------------------------------------------------------------------------------

TEST(GlobalEntries, ServeEveryFragmentInEveryLayout) {
  const FragmentFile file = SomeFragments(5);
  for (const Afra& layout : AllLayouts()) {
    ExpectAllServed(file, GlobalIndex(file, layout));
    ExpectAllServed(file, GlobalIndex(file, layout, 41, 7), 41, 7);
    ExpectAllServed(file, GlobalIndex(file, layout, 0xFFF0, 0xFFFF), 0xFFF0, 0xFFFF);
  }
}

TEST(GlobalEntries, LongNumbersUseAll32Bits) {
  const FragmentFile file = SomeFragments(3);
  const uint32_t first = 0xFFFFFFFD;
  OpenedServicer servicer(file.bytes, GlobalIndex(file, {}, first, 0xFFFFFFFF));
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(servicer.Get(first + i, 0xFFFFFFFF).data, file.fragments[i]);
  }
}

TEST(GlobalEntries, NumbersBelowTheFirst_Error1024) {
  const FragmentFile file = SomeFragments(3);
  OpenedServicer servicer(file.bytes, GlobalIndex(file, {}, 10));
  for (const uint32_t number : {0u, 1u, 9u}) {
    EXPECT_EQ(servicer.Get(number).result, kNotFound) << number;
  }
  EXPECT_EQ(servicer.Get(10).data, file.fragments[0]);
}

TEST(GlobalEntries, NumbersAboveTheLast_Error1024) {
  const FragmentFile file = SomeFragments(3);
  for (const Afra& layout : AllLayouts()) {
    OpenedServicer servicer(file.bytes, GlobalIndex(file, layout));
    for (const uint32_t number : {4u, 5u, 0x10001u, 0xFFFFFFFFu}) {
      EXPECT_EQ(servicer.Get(number).result, kNotFound) << number;
    }
    EXPECT_LE(servicer.Index().GreatestOffset(), servicer.Index().Length());
  }
}

TEST(GlobalEntries, Segment0_Error1027) {
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(file.bytes, GlobalIndex(file));
  EXPECT_EQ(servicer.Get(1, 0).result, kQiroK7MErrorInvalidSegmentNumber);
  EXPECT_EQ(servicer.Get(0, 0).result, kNotFound);
}

TEST(GlobalEntries, AnotherSegmentIsSuccessWithoutData) {
  const FragmentFile file = SomeFragments(3);
  for (const Afra& layout : AllLayouts()) {
    OpenedServicer servicer(file.bytes, GlobalIndex(file, layout, 1, 5));
    for (const uint32_t number : {1u, 2u, 3u}) {
      const Answer answer = servicer.Get(number, 6);
      EXPECT_EQ(answer.result, 0u);
      EXPECT_EQ(answer.size, 0u);
      EXPECT_TRUE(answer.isNull);
    }
    EXPECT_EQ(servicer.Get(2, 5).data, file.fragments[1]);
  }
}

TEST(GlobalEntries, AreTakenToBeConsecutiveWithoutASearch) {
  const FragmentFile file = SomeFragments(3);
  Afra index;
  index.globals = {{.fragment = 1, .afraOffset = file.offsets[0]},
                   {.fragment = 3, .afraOffset = file.offsets[1]},
                   {.fragment = 3, .afraOffset = file.offsets[2]}};
  OpenedServicer servicer(file.bytes, AfraBox(index));
  EXPECT_EQ(servicer.Get(1).data, file.fragments[0]);
  const Answer second = servicer.Get(2);  // In its place stands an entry of fragment 3.
  EXPECT_EQ(second.result, 0u);
  EXPECT_TRUE(second.isNull);
  EXPECT_EQ(servicer.Get(3).data, file.fragments[2]);
}

TEST(GlobalEntries, AnOffsetOfAllOnes_Error26) {
  const FragmentFile file = SomeFragments(1);
  for (Afra layout : AllLayouts()) {
    layout.globals = {{.fragment = 1, .afraOffset = kAllOnes},
                      {.segment = 2, .fragment = 2, .afraOffset = kAllOnes}};
    OpenedServicer servicer(file.bytes, AfraBox(layout));
    EXPECT_EQ(servicer.Get(1).result, kNotAvailable);
    EXPECT_EQ(servicer.Get(2, 2).result, kNotAvailable);
    EXPECT_EQ(servicer.Get(2, 1).result, 0u) << "the segment is compared first";
  }
}

TEST(GlobalEntries, TheirCountMattersOnlyWhenItIsZero) {
  const FragmentFile file = SomeFragments(3);
  for (const uint32_t count : {1u, 2u, 0xFFFFFFFFu}) {
    Afra layout;
    layout.globalCount = count;
    ExpectAllServed(file, GlobalIndex(file, layout));
  }
  Afra layout;
  layout.globalCount = 0;
  OpenedServicer servicer(file.bytes, GlobalIndex(file, layout));
  EXPECT_EQ(servicer.Get(1).result, kNotFound);
}

TEST(GlobalEntries, EveryOtherFailureBehindThem_Error1024) {
  const FragmentFile file = SomeFragments(1);
  for (const uint64_t offset : {uint64_t{0}, file.offsets[0] + 1, uint64_t{file.bytes.Size()},
                                uint64_t{0x7FFFFFFFFFFFFFFF}, kAllOnes - 1}) {
    OpenedServicer servicer(file.bytes, AfraBox({.globals = {{.afraOffset = offset}}}));
    EXPECT_EQ(servicer.Get(1).result, kNotFound) << offset;
  }
  for (size_t cut = 1; cut < file.fragments[0].Size(); ++cut) {
    OpenedServicer servicer(Cut(file.bytes, file.bytes.Size() - cut), GlobalIndex(file));
    EXPECT_EQ(servicer.Get(1).result, kNotFound) << cut;
  }
}

TEST(AnIndexWithoutEntries, HasNoFragments_Error1024) {
  const FragmentFile file = SomeFragments(1);
  for (Afra layout : AllLayouts()) {
    for (const bool hasGlobalPart : {false, true}) {
      layout.hasGlobalPart = hasGlobalPart;
      OpenedServicer servicer(file.bytes, AfraBox(layout));
      ASSERT_EQ(servicer.Result(), 0u);
      EXPECT_EQ(servicer.Get(1).result, kNotFound);
      EXPECT_EQ(servicer.Get(1, 0).result, kQiroK7MErrorInvalidSegmentNumber);
    }
  }
}

TEST(AnIndexWithoutEntries, IsNotAskedForGlobalOnesThatItDoesNotAnnounce) {
  const FragmentFile file = SomeFragments(1);
  Bytes index = GlobalIndex(file);
  index[12] = 0xC0;
  OpenedServicer servicer(file.bytes, index);
  EXPECT_EQ(servicer.Get(1).result, kNotFound);
}

// The index as a file
// ----------------------------------------------------------------------------------

TEST(IndexFile, ShorterThanAnEmptyBox_Error1026) {
  const Bytes file = SomeFragments(1).bytes;
  const Bytes empty = AfraBox({});
  ASSERT_EQ(empty.Size(), 21u);
  EXPECT_EQ(ServicerResult(file, empty), 0u);
  for (uint32_t size = 0; size < 21; ++size) {
    EXPECT_EQ(ServicerResult(file, Cut(empty, size)), kBadIndex) << size;
    if (size < 4) continue;
    EXPECT_EQ(ServicerResult(file, Cut(empty, size).Patch(0, size)), kBadIndex) << size;
  }
}

TEST(IndexFile, ThatIsNotExactlyOneBox_Error1026) {
  const FragmentFile file = SomeFragments(2);
  const Bytes index = LocalIndex(file);
  EXPECT_EQ(ServicerResult(file.bytes, index + Bytes{0}), kBadIndex);
  EXPECT_EQ(ServicerResult(file.bytes, index + index), kBadIndex);
  EXPECT_EQ(ServicerResult(file.bytes, Cut(index, index.Size() - 1)), kBadIndex);
  EXPECT_EQ(ServicerResult(file.bytes, Bytes(index).Patch(0, 7)), kBadIndex);
  EXPECT_EQ(ServicerResult(file.bytes, Bytes(index).Patch(0, 0xFFFFFFFF)), kBadIndex);
  EXPECT_EQ(ServicerResult(file.bytes, Box("free") + index), kBadIndex);
}

TEST(IndexFile, OfAnotherType_Error1026) {
  const FragmentFile file = SomeFragments(2);
  for (const char* type : {"abst", "AFRA", "free", "uuid"}) {
    EXPECT_EQ(ServicerResult(file.bytes, FullBox(type, 0, 0, Afra{})), kBadIndex) << type;
  }
  EXPECT_EQ(ServicerResult(file.bytes, file.bytes), kBadIndex);
}

TEST(IndexFile, ABoxThatRunsToTheEndIsAsLongAsTheStream) {
  const FragmentFile file = SomeFragments(2);
  ExpectAllServed(file, LocalIndex(file).Patch(0, 0));
}

TEST(IndexFile, ABoxInTheLargeFormIsRead) {
  const FragmentFile file = SomeFragments(2);
  for (const Bytes& index : {LocalIndex(file), GlobalIndex(file)}) {
    const Bytes large = LargeBox("afra", index.Slice(8, index.Size() - 8));
    ExpectAllServed(file, large);
    EXPECT_EQ(ServicerResult(file.bytes, large + Bytes{0}), kBadIndex);
  }
  const Bytes tooShort = Cut(LargeBox("afra", Bytes().Fill(13)), 28).Patch(8, 28, 8);
  EXPECT_EQ(ServicerResult(file.bytes, tooShort), kBadIndex);
}

TEST(IndexFile, IsLookedAtAnewByEveryRequest) {
  const FragmentFile file = SomeFragments(2);
  OpenedServicer servicer(file.bytes, AfraBox({.locals = {{.offset = kAllOnes}}}));
  EXPECT_EQ(servicer.Get(1).result, kNotAvailable);
  servicer.Index().Put(0, AfraBox({.locals = {{.offset = file.offsets[1]}}}));
  EXPECT_EQ(servicer.Get(1).data, file.fragments[1]);
}

}  // namespace
}  // namespace k7mtest
