#include "base/data_cache.h"

#include <gtest/gtest.h>

#include "base/client_streams.h"
#include "internals/error_of.h"
#include "support/memory_stream.h"

namespace qiro::k7m::impl {
namespace {

using k7mtest::Bytes;
using k7mtest::Call;
using k7mtest::ErrorOf;
using k7mtest::MemoryStream;
using k7mtest::Pattern;

constexpr uint64_t kFileSize = 1000;

struct Cached {
  Cached(uint64_t baseOffset, uint32_t slotCount, uint32_t blockSize)
      : memory(Pattern(kFileSize)),
        stream(memory.Reading(), WarningHandler()),
        cache(&stream, baseOffset, slotCount, blockSize) {
    stream.Open();
    memory.ClearLog();
  }
  Bytes Read(uint64_t length, uint64_t offset) {
    Bytes buffer;
    buffer.Fill(length, 0xEE);
    const uint64_t count = cache.Read(buffer.Data(), length, offset);
    return k7mtest::Cut(buffer, count);
  }
  /// (position, size) of every read since the last call.
  std::vector<std::pair<uint64_t, uint64_t>> Reads() {
    std::vector<std::pair<uint64_t, uint64_t>> reads;
    for (const auto& record : memory.Log()) {
      if (record.call == Call::kRead) {
        reads.emplace_back(record.offset, record.size);
      }
    }
    memory.ClearLog();
    return reads;
  }
  MemoryStream memory;
  QiroK7MIStream stream;
  DataCache<QiroK7MStream> cache;
};

using Reads = std::vector<std::pair<uint64_t, uint64_t>>;

Bytes Expected(uint64_t length, uint64_t offset) {
  return Pattern(kFileSize).Slice(offset, length);
}

TEST(DataCache, BelowItsBaseNothingIsRead) {
  Cached cached(100, 1, 64);
  EXPECT_TRUE(cached.Read(10, 99).Empty());
  EXPECT_EQ(cached.Reads(), Reads{});
  EXPECT_EQ(cached.Read(10, 100), Expected(10, 100));
}

TEST(DataCache, AMissLoadsTheBlockThatHoldsTheRequest) {
  Cached cached(0, 1, 64);
  EXPECT_EQ(cached.Read(10, 70), Expected(10, 70));
  EXPECT_EQ(cached.Reads(), (Reads{{64, 64}}));
}

TEST(DataCache, BlocksAreCountedFromTheBase) {
  Cached cached(10, 1, 64);
  EXPECT_EQ(cached.Read(4, 80), Expected(4, 80));
  EXPECT_EQ(cached.Reads(), (Reads{{74, 64}}));
}

TEST(DataCache, AHitReadsNothing) {
  Cached cached(0, 1, 64);
  cached.Read(10, 70);
  cached.Reads();
  EXPECT_EQ(cached.Read(64, 64), Expected(64, 64));
  EXPECT_EQ(cached.Read(1, 127), Expected(1, 127));
  EXPECT_EQ(cached.memory.Count(Call::kAny), 0U);
}

TEST(DataCache, ARequestOverTwoBlocksIsReadDirectlyAsAWhole) {
  Cached cached(0, 1, 64);
  EXPECT_EQ(cached.Read(20, 54), Expected(20, 54));
  EXPECT_EQ(cached.Reads(), (Reads{{0, 64}, {54, 20}}));
}

TEST(DataCache, AHitThatHoldsOnlyTheStartLoadsTheNextBlockForTheRest) {
  Cached cached(0, 1, 64);
  cached.Read(1, 0);
  cached.Reads();
  EXPECT_EQ(cached.Read(20, 54), Expected(20, 54));
  EXPECT_EQ(cached.Reads(), (Reads{{64, 64}}));
}

TEST(DataCache, ARequestLongerThanABlockIsReadDirectly) {
  Cached cached(0, 1, 64);
  EXPECT_EQ(cached.Read(65, 3), Expected(65, 3));
  EXPECT_EQ(cached.Reads(), (Reads{{3, 65}}));
  EXPECT_EQ(cached.Read(64, 0), Expected(64, 0));  // Nothing was kept of it.
  EXPECT_EQ(cached.Reads(), (Reads{{0, 64}}));
}

TEST(DataCache, FreeSlotsAreFilledFirst) {
  Cached cached(0, 3, 64);
  cached.Read(1, 0);
  cached.Read(1, 200);
  cached.Read(1, 400);
  cached.Reads();
  EXPECT_EQ(cached.Read(5, 10), Expected(5, 10));
  EXPECT_EQ(cached.Read(5, 210), Expected(5, 210));
  EXPECT_EQ(cached.Read(5, 410), Expected(5, 410));
  EXPECT_EQ(cached.Reads(), Reads{});
}

TEST(DataCache, WhenAllSlotsAreFullSlotZeroIsReplacedHoweverOftenItWasUsed) {
  Cached cached(0, 2, 64);
  cached.Read(1, 0);
  cached.Read(1, 200);
  for (int i = 0; i < 5; ++i) {
    cached.Read(1, 0);
  }
  cached.Read(1, 400);
  cached.Reads();
  cached.Read(1, 200);
  EXPECT_EQ(cached.Reads(), Reads{});
  cached.Read(1, 400);
  EXPECT_EQ(cached.Reads(), Reads{});
  EXPECT_EQ(cached.Read(1, 0), Expected(1, 0));
  EXPECT_EQ(cached.Reads(), (Reads{{0, 64}}));
  cached.Read(1, 400);
  EXPECT_EQ(cached.Reads(), (Reads{{384, 64}}));
}

TEST(DataCache, TheAgesAreMaskedAndStayZero) {
  Cached cached(0, 2, 64);
  for (const uint64_t offset : std::vector<uint64_t>{0, 0, 200, 200, 0, 200, 400, 0}) {
    cached.Read(1, offset);
    EXPECT_EQ(cached.cache.AgeOf(0), 0U);
    EXPECT_EQ(cached.cache.AgeOf(1), 0U);
  }
}

TEST(DataCache, AtTheEndOfTheStreamWhatIsThereIsDelivered) {
  Cached cached(0, 1, 64);
  EXPECT_EQ(cached.Read(10, 995), Expected(5, 995));
  EXPECT_EQ(cached.Read(10, 1000).Size(), 0U);
  EXPECT_EQ(cached.Read(100, 990), Expected(10, 990));
  EXPECT_EQ(cached.Read(10, 5000).Size(), 0U);
}

TEST(DataCache, AByteThatTheBlockAndTheDirectReadDeliverCountsOnce) {
  Cached cached(0, 1, 64);
  cached.memory.LimitReads(60);
  EXPECT_EQ(cached.Read(64, 0), Expected(60, 0));
}

TEST(DataCache, AShortDirectReadDoesNotTakeBackWhatTheBlockGave) {
  Cached cached(0, 1, 64);
  cached.Read(1, 0);
  cached.memory.LimitReads(2);
  EXPECT_EQ(cached.Read(30, 50), Expected(16, 50));
}

TEST(DataCache, AShortBlockServesWhatItHolds) {
  Cached cached(0, 1, 64);
  cached.memory.LimitReads(20);
  EXPECT_EQ(cached.Read(20, 0), Expected(20, 0));
  cached.Reads();
  EXPECT_EQ(cached.Read(10, 10), Expected(10, 10));
  EXPECT_EQ(cached.Reads(), Reads{});
  EXPECT_EQ(cached.Read(10, 30), Expected(10, 30));
  EXPECT_EQ(cached.Reads(), (Reads{{0, 64}, {30, 10}}));
}

TEST(DataCache, ABlockWhoseLoadingFailedHoldsNothing) {
  Cached cached(0, 1, 64);
  cached.Read(1, 0);
  cached.memory.FailNth(Call::kRead, 1, 777);
  EXPECT_EQ(ErrorOf([&] { cached.Read(1, 70); }), 777U);
  EXPECT_EQ(cached.Read(4, 0), Expected(4, 0));
  EXPECT_EQ(cached.Read(4, 70), Expected(4, 70));
  cached.memory.FailNth(Call::kSeek, 1, 778);
  EXPECT_EQ(ErrorOf([&] { cached.Read(1, 200); }), 778U);
  EXPECT_EQ(cached.Read(4, 70), Expected(4, 70));
}

TEST(DataCache, AnEmptyRequestDeliversNothing) {
  Cached cached(0, 1, 64);
  EXPECT_EQ(cached.Read(0, 10).Size(), 0U);
  cached.Read(1, 10);
  EXPECT_EQ(cached.Read(0, 10).Size(), 0U);
}

TEST(DataCache, AnOffsetThatNoCallbackMayGetDeliversNothing) {
  Cached cached(0, 1, 4096);
  EXPECT_EQ(cached.Read(10, uint64_t{1} << 63).Size(), 0U);
  EXPECT_EQ(cached.Read(10, UINT64_MAX).Size(), 0U);
  EXPECT_EQ(cached.Read(5000, UINT64_MAX - 10).Size(), 0U);
  EXPECT_EQ(cached.Read(10, INT64_MAX).Size(), 0U);
  EXPECT_STREQ(cached.memory.Violation(), nullptr);
}

TEST(DataCache, ManyRequestsOfAllSizesDeliverTheFile) {
  for (const uint32_t slots : {1U, 2U, 5U}) {
    Cached cached(0, slots, 32);
    uint32_t state = 1;
    for (int i = 0; i < 3000; ++i) {
      state = state * 1664525U + 1013904223U;
      const uint64_t offset = (state >> 8) % kFileSize;
      const uint64_t length = (state >> 20) % 80;
      const uint64_t there = std::min(length, kFileSize - offset);
      ASSERT_EQ(cached.Read(length, offset), Expected(there, offset)) << offset << ' ' << length;
    }
  }
}

}  // namespace
}  // namespace qiro::k7m::impl
