// Small writes that go out as one: what arrives, in how many calls, and what is left after a fault.
#include "base/gathering_stream.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "internals/error_of.h"
#include "support/memory_stream.h"

namespace qiro::k7m::impl {
namespace {

using k7mtest::Bytes;
using k7mtest::Call;
using k7mtest::ErrorOf;
using k7mtest::MemoryStream;
using k7mtest::Pattern;

constexpr size_t kCapacity = 4096;

struct Gathering {
  explicit Gathering(const Bytes& content = {})
      : memory(content), stream(memory.ReadingAndWriting()) {
    stream.Open();
    memory.ClearLog();
  }
  void Write(uint64_t offset, const Bytes& bytes) {
    stream.SeekTo(offset);
    stream.WriteBYTES(bytes.Data(), bytes.Size());
  }
  MemoryStream memory;
  GatheringStream stream;
};

TEST(GatheringStream, PassesEverythingOnWhileNothingIsGathered) {
  Gathering gathering;
  gathering.Write(0, Pattern(3));
  gathering.stream.WriteDWORD(7);
  EXPECT_EQ(gathering.memory.Count(Call::kWrite), 2U);
  EXPECT_EQ(gathering.memory.Count(Call::kSeek), 1U);
  EXPECT_EQ(gathering.stream.Tell(), 7U);
  EXPECT_EQ(gathering.stream.Length(), 7U);
  EXPECT_EQ(gathering.stream.CachedLength(), 7U);
}

TEST(GatheringStream, WritesThatFollowEachOtherAreOne) {
  Gathering gathering;
  GatheredWrites writes(gathering.stream);
  gathering.Write(5, Pattern(3, 1));
  gathering.stream.WriteDWORD(0x01020304);
  gathering.Write(12, Pattern(2, 2));
  EXPECT_EQ(gathering.stream.Tell(), 14U);
  EXPECT_EQ(gathering.memory.Count(Call::kAny), 0U);
  writes.Finish();
  EXPECT_EQ(gathering.memory.Count(Call::kSeek), 1U);
  EXPECT_EQ(gathering.memory.Count(Call::kWrite), 1U);
  EXPECT_EQ(gathering.memory.Content(5, 9),
            Pattern(3, 1) + Bytes().U32(0x01020304) + Pattern(2, 2));
  EXPECT_EQ(gathering.memory.Position(), 14U);
}

TEST(GatheringStream, WhatIsOverwrittenGoesOutOnce) {
  Gathering gathering;
  GatheredWrites writes(gathering.stream);
  gathering.Write(0, Pattern(20, 1));
  gathering.Write(4, Pattern(3, 9));
  writes.Finish();
  EXPECT_EQ(gathering.memory.Count(Call::kWrite), 1U);
  EXPECT_EQ(gathering.memory.Content(4, 3), Pattern(3, 9));
  EXPECT_EQ(gathering.memory.Length(), 20U);
  EXPECT_EQ(gathering.memory.Position(), 7U);  // Where the last write ended.
}

TEST(GatheringStream, OtherPlacesAreWrittenInTheOrderOfTheWrites) {
  Gathering gathering;
  gathering.memory.StartJournal();
  GatheredWrites writes(gathering.stream);
  gathering.Write(100, Pattern(2, 1));
  gathering.Write(0, Pattern(2, 2));
  gathering.Write(102, Pattern(2, 3));
  writes.Finish();
  ASSERT_EQ(gathering.memory.Journal().size(), 3U);
  EXPECT_EQ(gathering.memory.Journal()[0].offset, 100U);
  EXPECT_EQ(gathering.memory.Journal()[1].offset, 0U);
  EXPECT_EQ(gathering.memory.Journal()[2].offset, 102U);
}

TEST(GatheringStream, LargeWritesGoOutByThemselves) {
  Gathering gathering;
  GatheredWrites writes(gathering.stream);
  gathering.Write(0, Pattern(10, 1));
  gathering.stream.WriteBYTES(Pattern(kCapacity, 2).Data(), kCapacity);
  gathering.stream.WriteDWORD(5);
  writes.Finish();
  EXPECT_EQ(gathering.memory.Count(Call::kWrite), 3U);
  EXPECT_EQ(gathering.memory.Count(Call::kSeek), 1U);
  EXPECT_EQ(gathering.memory.Content(), Pattern(10, 1) + Pattern(kCapacity, 2) + Bytes().U32(5));
}

TEST(GatheringStream, ReservedSpaceIsSteppedOver) {
  Gathering gathering;
  GatheredWrites writes(gathering.stream);
  gathering.Write(0, Pattern(4));
  gathering.stream.ReserveSpace(1000);
  writes.Finish();
  EXPECT_EQ(gathering.memory.Length(), 1004U);
  EXPECT_EQ(gathering.memory.Count(Call::kWrite), 2U);
}

TEST(GatheringStream, WhatIsReadMeanwhileWasWrittenBefore) {
  Gathering gathering(Pattern(10, 1));
  GatheredWrites writes(gathering.stream);
  gathering.Write(2, Pattern(3, 7));
  gathering.stream.SeekTo(2);
  std::vector<uint8_t> read(3);
  gathering.stream.Read(read.data(), read.size());
  EXPECT_EQ(read, Pattern(3, 7).Vector());
  EXPECT_EQ(gathering.stream.Length(), 10U);
  writes.Finish();
}

TEST(GatheringStream, ScopesWithinEachOtherEndWithTheOutermost) {
  Gathering gathering;
  GatheredWrites outer(gathering.stream);
  gathering.Write(0, Pattern(2));
  {
    GatheredWrites inner(gathering.stream);
    gathering.stream.WriteDWORD(1);
    inner.Finish();
  }
  EXPECT_EQ(gathering.memory.Count(Call::kWrite), 0U);
  outer.Finish();
  EXPECT_EQ(gathering.memory.Count(Call::kWrite), 1U);
}

TEST(GatheringStream, AbandonedWritesNeverGoOut) {
  Gathering gathering;
  {
    GatheredWrites writes(gathering.stream);
    gathering.Write(0, Pattern(8));
  }
  EXPECT_EQ(gathering.memory.Count(Call::kAny), 0U);
  gathering.Write(3, Pattern(1));
  EXPECT_EQ(gathering.memory.Length(), 4U);
}

TEST(GatheringStream, AFaultIsTheAnswerAndLeavesNothingBehind) {
  for (const Call call : {Call::kSeek, Call::kWrite}) {
    Gathering gathering;
    gathering.memory.FailNth(call, 1, 77);
    EXPECT_EQ(ErrorOf([&] {
                GatheredWrites writes(gathering.stream);
                gathering.Write(1, Pattern(8));
                writes.Finish();
              }),
              77U);
    gathering.memory.ClearLog();
    GatheredWrites writes(gathering.stream);
    gathering.Write(1, Pattern(2, 5));
    writes.Finish();
    EXPECT_EQ(gathering.memory.Content(1, 2), Pattern(2, 5));
    EXPECT_EQ(gathering.memory.Length(), 3U);
    EXPECT_EQ(gathering.memory.Count(Call::kSeek), 1U);
  }
}

TEST(GatheringStream, AShortWriteIsAFault) {
  Gathering gathering;
  gathering.memory.ShortenNthWrite(1);
  GatheredWrites writes(gathering.stream);
  gathering.Write(0, Pattern(8));
  EXPECT_EQ(ErrorOf([&] { writes.Finish(); }), kQiroK7MErrorWriteFailed);
}

TEST(GatheringStream, AnySequenceGivesTheSameBytes) {
  for (uint32_t seed = 1; seed <= 50; ++seed) {
    std::mt19937 random(seed);
    Gathering gathered;
    Gathering direct;
    GatheredWrites writes(gathered.stream);
    for (int i = 0; i < 300; ++i) {
      const uint64_t offset = random() % 6000;
      const Bytes bytes = Pattern(random() % (i % 20 == 0 ? 5000 : 30), static_cast<uint32_t>(i));
      const bool isPlaced = i == 0 || random() % 3 == 0;
      for (Gathering* one : {&gathered, &direct}) {
        if (isPlaced) one->stream.SeekTo(offset);
        one->stream.WriteBYTES(bytes.Data(), bytes.Size());
      }
      ASSERT_EQ(gathered.stream.Tell(), direct.stream.Tell());
    }
    writes.Finish();
    ASSERT_EQ(gathered.memory.Content(), direct.memory.Content()) << seed;
    ASSERT_EQ(gathered.memory.Position(), direct.memory.Position());
    EXPECT_LT(gathered.memory.Count(Call::kWrite), direct.memory.Count(Call::kWrite));
  }
}

}  // namespace
}  // namespace qiro::k7m::impl
