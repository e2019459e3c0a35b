#include <gtest/gtest.h>

#include "support/sweep.h"
#include "writer_script.h"
#include "writer_verdict.h"

namespace k7mtest {
namespace {

constexpr uint32_t kScriptCount = 24;
constexpr QiroK7MError kOwnCode = 4711;

/// Runs `sweep(script, unharmed)` for orders of calls that all get through without a fault.
template <class SweepOne>
void ForEachScript(SweepOne sweep) {
  uint64_t faults = 0;
  for (uint32_t seed = 1; seed <= kScriptCount && !::testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("script " + std::to_string(seed));
    WriterScript script(RandomScript(seed));
    faults += sweep(script, UnharmedRun(RandomScript(seed)));
  }
  EXPECT_GT(faults, kScriptCount * 10u);
  ::testing::Test::RecordProperty("faults", std::to_string(faults));
}

template <class Arm>
uint64_t SweepStreamOf(WriterScript& script, const UnharmedRun& unharmed, QiroK7MError code,
                       Arm arm) {
  return Sweep([&](uint64_t n) {
    bool wasHit = false;
    {
      CountingAllocator memory;
      MemoryStream stream;
      script.Prepare();
      arm(stream, n);
      script.Run(stream, memory.Record());
      wasHit = stream.FaultHit();
      Judge(script, script.Result(), wasHit, code, stream, unharmed);
      EXPECT_EQ(memory.LiveBlocks(), 0u);
      EXPECT_EQ(memory.BadReleases(), 0u);
    }
    script.Forget();
    return wasHit;
  });
}

TEST(WriterSweep, EveryCallOfTheStreamFails) {
  ForEachScript([](WriterScript& script, const UnharmedRun& unharmed) {
    return SweepStreamOf(script, unharmed, kOwnCode, [](MemoryStream& stream, uint64_t n) {
      stream.FailNth(Call::kAny, n, kOwnCode);
    });
  });
}

TEST(WriterSweep, EveryCallOfTheStreamFromTheNthOnFails) {
  ForEachScript([](WriterScript& script, const UnharmedRun& unharmed) {
    return SweepStreamOf(script, unharmed, kOwnCode, [](MemoryStream& stream, uint64_t n) {
      stream.FailNth(Call::kWrite, n, kOwnCode, true);
    });
  });
}

TEST(WriterSweep, EverySeekFails) {
  ForEachScript([](WriterScript& script, const UnharmedRun& unharmed) {
    return SweepStreamOf(script, unharmed, 5, [](MemoryStream& stream, uint64_t n) {
      stream.FailNth(Call::kSeek, n, 5);
    });
  });
}

TEST(WriterSweep, EveryWriteIsShort) {
  ForEachScript([](WriterScript& script, const UnharmedRun& unharmed) {
    return SweepStreamOf(script, unharmed, kQiroK7MErrorWriteFailed,
                         [](MemoryStream& stream, uint64_t n) { stream.ShortenNthWrite(n); });
  });
}

TEST(WriterSweep, EveryRequestToTheClientsAllocatorFails) {
  ForEachScript([](WriterScript& script, const UnharmedRun& unharmed) {
    return Sweep([&](uint64_t n) {
      CountingAllocator memory;
      {
        MemoryStream stream;
        script.Prepare();
        memory.FailNth(n);
        script.Run(stream, memory.Record());
        Judge(script, script.Result(), memory.FaultHit(), kQiroK7MErrorOutOfMemory, stream,
              unharmed);
      }
      script.Forget();
      EXPECT_EQ(memory.LiveBlocks(), 0u);
      EXPECT_EQ(memory.BadReleases(), 0u);
      return memory.FaultHit();
    });
  });
}

TEST(WriterSweep, EveryRequestToTheGlobalOperatorsFails) {
  ASSERT_TRUE(HeapIsWatched());
  for (const bool withAllocator : {true, false}) {
    ForEachScript([withAllocator](WriterScript& script, const UnharmedRun& unharmed) {
      return Sweep([&](uint64_t n) {
        bool wasHit = false;
        {
          CountingAllocator memory;
          MemoryStream stream;
          script.Prepare();
          {
            HeapFault fault(n);
            script.Run(stream, withAllocator ? memory.Record() : QiroK7MAllocatorCallBacks());
            wasHit = fault.Hit();
          }
          Judge(script, script.Result(), wasHit, kQiroK7MErrorOutOfMemory, stream, unharmed);
          EXPECT_EQ(memory.LiveBlocks(), 0u);
        }
        script.Forget();
        return wasHit;
      });
    });
  }
}

TEST(WriterSweep, AStreamThatFailsWithAHarmlessCodeLeavesTheWriterGood) {
  ForEachScript([](WriterScript& script, const UnharmedRun&) {
    return Sweep([&](uint64_t n) {
      bool wasHit = false;
      {
        CountingAllocator memory;
        MemoryStream stream;
        script.Prepare();
        stream.FailNth(Call::kWrite, n, 1283);
        script.Run(stream, memory.Record());
        wasHit = stream.FaultHit();
        const ScriptResult& result = script.Result();
        ExpectBuffersBack(script, result);
        if (wasHit && result.created == 0) {
          const size_t failed = FirstFailure(result);
          EXPECT_LT(failed, result.codes.size());
          const bool isClose = script.Steps()[failed].what == Do::kClose;
          for (size_t i = failed + 1; i < result.codes.size() && !isClose; ++i) {
            EXPECT_NE(result.codes[i], 48u) << "step " << i << " behind " << failed;
          }
        }
        EXPECT_FALSE(stream.IsOpen());
        EXPECT_EQ(memory.LiveBlocks(), 0u);
      }
      script.Forget();
      return wasHit;
    });
  });
}

}  // namespace
}  // namespace k7mtest
