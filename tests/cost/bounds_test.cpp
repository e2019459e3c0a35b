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
  EXPECT_LE(static_cast<uint64_t>(after.peakBytes - before.liveBytes) + memory.PeakBytes(),
            kFixedMemory + kMemoryPerByteRead * bytesRead + bad.untouchedMemory);
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

}  // namespace
}  // namespace k7mtest
