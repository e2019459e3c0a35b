// The iterators over tables: those without a table, and ranges that hold nothing.
#include <gtest/gtest.h>

#include "boxes/box_iterators.h"
#include "boxes/edit_boxes.h"
#include "boxes/stbl_box.h"
#include "internals/document.h"

namespace k7mtest {
namespace {

template <class T>
class IteratorWithoutATable : public ::testing::Test {};

struct IteratorName {
  template <class T>
  static std::string GetName(int index) {
    return std::to_string(index);
  }
};

using Iterators =
    ::testing::Types<impl::BoxIterator, impl::BoxIteratorByType, impl::ReverseBoxIterator,
                     impl::ReverseBoxIteratorByType, impl::ElstIterator, impl::SttsIterator,
                     impl::CttsIterator, impl::StscIterator, impl::SampleSizeIterator,
                     impl::Iterator<uint8_t>, impl::Iterator<impl::SyncSampleEntry>,
                     impl::Iterator<impl::ChunkOffsetEntry>,
                     impl::RunIterator<impl::CompactSttsEntry>>;
TYPED_TEST_SUITE(IteratorWithoutATable, Iterators, IteratorName);

TYPED_TEST(IteratorWithoutATable, HasNoEntries) {
  const TypeParam iterator;
  EXPECT_FALSE(iterator.HasMoreEntries());
  const TypeParam copy = iterator;
  EXPECT_FALSE(copy.HasMoreEntries());
}

// Decode times
// --------------------------------------------------------------------------------------

/// The 'stts' of these runs and what its searches find.
class Durations {
 public:
  explicit Durations(const std::vector<Stts::Run>& runs)
      : document_(FullBox("stts", 0, 0, Stts{.runs = runs})),
        box_(document_.Next<impl::SttsBox>()) {}

  impl::SttsIterator Find(uint64_t begin, uint64_t end) const {
    return box_.FindByDecodeTime(begin, end);
  }
  std::vector<uint32_t> Samples(uint64_t begin, uint64_t end) const {
    std::vector<uint32_t> numbers;
    for (auto found = Find(begin, end); found.HasMoreEntries(); ++found) {
      numbers.push_back(found->sampleNumber);
    }
    return numbers;
  }

 private:
  Document document_;
  impl::SttsBox& box_;
};

using Numbers = std::vector<uint32_t>;

TEST(SttsIterator, ARangeOfOneTimeHoldsTheSampleAtIt) {
  const Durations durations({{5, 10}, {5, 20}});
  EXPECT_EQ(durations.Samples(0, 0), Numbers{1});
  EXPECT_EQ(durations.Samples(30, 30), Numbers{4});
  EXPECT_EQ(durations.Samples(50, 50), Numbers{6});
  EXPECT_EQ(durations.Samples(130, 130), Numbers{10});
}

TEST(SttsIterator, ARangeBetweenTwoSamplesOfARunHoldsNothing) {
  const Durations durations({{5, 10}, {5, 20}});
  EXPECT_EQ(durations.Samples(11, 19), Numbers{});
  EXPECT_EQ(durations.Samples(15, 15), Numbers{});
  EXPECT_EQ(durations.Samples(51, 69), Numbers{});
  EXPECT_EQ(durations.Samples(11, 20), Numbers{3});
  EXPECT_FALSE(durations.Find(11, 19).HasMoreEntries());
}

TEST(SttsIterator, ARangeMayEndWithTheLastNumber) {
  const Durations durations({{2, 10}, {1, 0xFFFFFFFF}, {1, 0}});
  EXPECT_EQ(durations.Samples(0, UINT64_MAX), (Numbers{1, 2, 3, 4}));
  EXPECT_EQ(durations.Samples(UINT64_MAX, UINT64_MAX), Numbers{});
}

TEST(SttsIterator, GivesTheDurationOfTheCurrentSample) {
  std::vector<uint32_t> durations;
  const Durations table({{2, 10}, {0, 99}, {1, 0}, {2, 0xFFFFFFFF}});
  for (auto found = table.Find(0, UINT64_MAX); found.HasMoreEntries(); ++found) {
    durations.push_back(found.GetDuration());
  }
  EXPECT_EQ(durations, (Numbers{10, 10, 0, 0xFFFFFFFF, 0xFFFFFFFF}));
}

// Sizes
// ---------------------------------------------------------------------------------------------

impl::SampleSizeIterator SizesOf(Document& document) {
  return document.Next<impl::StszBox>().FindBySampleNumber(1);
}

TEST(SampleSizeIterator, KnowsWhetherTheSizeIsConstant) {
  Document constant(FullBox("stsz", 0, 0, Stsz{.constantSize = 7, .sizes = {}, .count = 3}));
  Document table(FullBox("stsz", 0, 0, Stsz{.sizes = {7, 8}}));
  EXPECT_TRUE(SizesOf(constant).IsConstantIter());
  EXPECT_FALSE(SizesOf(table).IsConstantIter());
  EXPECT_FALSE(impl::SampleSizeIterator().IsConstantIter());
}

TEST(SampleSizeIterator, StaysConstantToItsEnd) {
  Document document(FullBox("stsz", 0, 0, Stsz{.constantSize = 7, .sizes = {}, .count = 2}));
  impl::SampleSizeIterator sizes = SizesOf(document);
  for (int i = 0; i < 2; ++i, ++sizes) {
    ASSERT_TRUE(sizes.HasMoreEntries());
    EXPECT_TRUE(sizes.IsConstantIter());
    EXPECT_EQ(sizes->size, 7U);
  }
  EXPECT_TRUE(sizes.IsConstantIter());
  EXPECT_FALSE(sizes.HasMoreEntries());
}

}  // namespace
}  // namespace k7mtest
