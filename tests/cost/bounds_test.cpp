// Bad files of every family: in every way of using them memory stays within its bound, everything
// is given back, the answers are documented codes, and it ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "every_way.h"
#include "families.h"
#include "support/counting_allocator.h"
#include "support/heap_watch.h"

namespace k7mtest {
namespace {

// Readers promise 64 MiB; on small files they take next to nothing.
constexpr uint64_t kFixedMemory = 256 << 10;
constexpr uint64_t kMemoryPerByteRead = 48;
constexpr uint64_t kBesideIt = 8 << 10;  // The good recording and its index.
constexpr uint32_t kSize = 1000;

std::array<bool, 5000> seen;

void Note(QiroK7MError result) { seen[std::min<size_t>(result, seen.size() - 1)] = true; }

bool IsDocumented(QiroK7MError code) {
  return std::string_view(QiroK7MErrorName(code)) != QiroK7MErrorName(4999);
}

void ExpectWithinBounds(Way way, const BadFile& bad) {
  CountingAllocator memory;
  const HeapCounts before = CountHeap();
  ResetHeapPeak();
  const uint64_t bytesRead = Use(way, bad.bytes, memory.Record(), 2 * kSize, Note);
  const HeapCounts after = CountHeap();
  // What is read over and over counts once.
  const uint64_t bytesKnown = std::min<uint64_t>(bytesRead, bad.bytes.Size() + kBesideIt);
  EXPECT_LE(static_cast<uint64_t>(after.peakBytes - before.liveBytes) + memory.PeakBytes(),
            kFixedMemory + kMemoryPerByteRead * bytesKnown + bad.untouchedMemory);
  EXPECT_EQ(after.liveBlocks, before.liveBlocks);
  EXPECT_EQ(memory.LiveBlocks(), 0u);
  EXPECT_EQ(memory.BadReleases(), 0u);
}

class BadFiles : public ::testing::TestWithParam<Family> {};

TEST_P(BadFiles, AreUsedWithinBounds) {
  ASSERT_TRUE(HeapIsWatched());
  seen = {};
  for (const BadFile& file : GetParam().make(kSize)) {
    SCOPED_TRACE(file.name);
    for (const Way way : kWays) ExpectWithinBounds(way, file);
  }
  for (QiroK7MError code = 0; code < seen.size(); ++code) {
    EXPECT_TRUE(!seen[code] || IsDocumented(code)) << code;
  }
  EXPECT_FALSE(seen[kQiroK7MErrorUnknown]);
  EXPECT_FALSE(seen[kQiroK7MErrorStdException]);
  EXPECT_TRUE(seen[kQiroK7MErrorNone]);
}

INSTANTIATE_TEST_SUITE_P(Of, BadFiles, ::testing::ValuesIn(AllFamilies()),
                         [](const auto& param) { return std::string(param.param.name); });

// Serving by the bad indexes begins; otherwise none of their entries would be looked at.
TEST(BadIndexesAmongThem, AreIndexesButThree) {
  static uint32_t refused;
  static uint32_t served;
  refused = served = 0;
  const auto note = [](QiroK7MError result) {
    refused += result == kQiroK7MErrorBadFragmentIndex ? 1 : 0;
    served += result == kQiroK7MErrorNone ? 1 : 0;
  };
  const std::vector<BadFile> files = BadIndexes(100);
  const QiroK7MAllocatorCallBacks memory;
  for (const BadFile& file : files) Use(Way::kServeGoodFileByIt, file.bytes, memory, 100, note);
  EXPECT_EQ(refused, 3u);
  EXPECT_GT(served, 15u * 100);
}

}  // namespace
}  // namespace k7mtest
