#include <gtest/gtest.h>

#include "support/sweep.h"
#include "writer_script.h"

namespace k7mtest {
namespace {

bool TakesBuffer(Do what) {
  return what != Do::kAddTrack && what != Do::kSetDescription && what != Do::kFlush &&
         what != Do::kClose;
}

/// The first step that did not answer 0; the number of steps when all did.
size_t FirstFailure(const ScriptResult& result) {
  size_t step = 0;
  while (step < result.codes.size() && result.codes[step] == 0) ++step;
  return step;
}

/// Every buffer that was handed over has come back once.
void ExpectBuffersBack(const WriterScript& script, const ScriptResult& result) {
  for (size_t i = 0; i < result.codes.size(); ++i) {
    EXPECT_EQ(result.releases[i], TakesBuffer(script.Steps()[i].what) ? 1 : 0) << "step " << i;
  }
}

/// The failed step answered `code`, which makes a writer bad: the steps behind it answer 48,
/// closing and destroying give the stream back, and nothing else reaches it.
void ExpectBadFrom(size_t failed, const WriterScript& script, const ScriptResult& result,
                   QiroK7MError code) {
  EXPECT_EQ(result.codes[failed], code) << "step " << failed;
  for (size_t i = failed + 1; i < result.codes.size(); ++i) {
    const QiroK7MError refusal = result.hasHandles[i] ? 48 : 20;  // Null pointers come first.
    EXPECT_EQ(result.codes[i], script.Steps()[i].what == Do::kClose ? 0u : refusal) << "step " << i;
  }
  const bool failedInClose = script.Steps()[failed].what == Do::kClose;
  const uint64_t further = result.callsBehindDestroy - result.callsBehindStep[failed];
  EXPECT_EQ(further, failedInClose ? 0u : 1u) << "calls of the stream once the writer is bad";
}

/// What one run with one fault must have done.
void Judge(const WriterScript& script, const ScriptResult& result, bool wasHit, QiroK7MError code,
           const MemoryStream& stream) {
  EXPECT_FALSE(stream.IsOpen());
  // A stream that could not be opened is closed all the same.
  const bool failedToOpen = result.created != 0 && stream.Count(Call::kAny) == 2;
  EXPECT_TRUE(stream.Violation() == nullptr || failedToOpen) << stream.Violation();
  EXPECT_LE(stream.Count(Call::kClose), 1u);
  if (result.created != 0) {
    EXPECT_TRUE(wasHit);
    EXPECT_EQ(result.created, code);
    return;
  }
  ExpectBuffersBack(script, result);
  const size_t failed = FirstFailure(result);
  if (failed < result.codes.size()) {
    EXPECT_TRUE(wasHit);
    ExpectBadFrom(failed, script, result, code);
  } else if (wasHit) {
    // Only the close of a destruction has nobody to tell.
    EXPECT_FALSE(script.EndsClosed());
    EXPECT_EQ(stream.Log().back().call, Call::kClose);
  }
}

constexpr uint32_t kScriptCount = 24;
constexpr QiroK7MError kOwnCode = 4711;

/// Runs `sweep(script)` for orders of calls that all get through without a fault.
template <class SweepOne>
void ForEachScript(SweepOne sweep) {
  uint64_t faults = 0;
  for (uint32_t seed = 1; seed <= kScriptCount && !::testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("script " + std::to_string(seed));
    WriterScript script(RandomScript(seed));
    faults += sweep(script);
  }
  EXPECT_GT(faults, kScriptCount * 10u);
  ::testing::Test::RecordProperty("faults", std::to_string(faults));
}

template <class Arm>
uint64_t SweepStreamOf(WriterScript& script, QiroK7MError code, Arm arm) {
  return Sweep([&](uint64_t n) {
    bool wasHit = false;
    {
      CountingAllocator memory;
      MemoryStream stream;
      script.Prepare();
      arm(stream, n);
      script.Run(stream, memory.Record());
      wasHit = stream.FaultHit();
      Judge(script, script.Result(), wasHit, code, stream);
      EXPECT_EQ(memory.LiveBlocks(), 0u);
      EXPECT_EQ(memory.BadReleases(), 0u);
    }
    script.Forget();
    return wasHit;
  });
}

TEST(WriterSweep, EveryCallOfTheStreamFails) {
  ForEachScript([](WriterScript& script) {
    return SweepStreamOf(script, kOwnCode, [](MemoryStream& stream, uint64_t n) {
      stream.FailNth(Call::kAny, n, kOwnCode);
    });
  });
}

TEST(WriterSweep, EveryCallOfTheStreamFromTheNthOnFails) {
  ForEachScript([](WriterScript& script) {
    return SweepStreamOf(script, kOwnCode, [](MemoryStream& stream, uint64_t n) {
      stream.FailNth(Call::kWrite, n, kOwnCode, true);
    });
  });
}

TEST(WriterSweep, EverySeekFails) {
  ForEachScript([](WriterScript& script) {
    return SweepStreamOf(
        script, 5, [](MemoryStream& stream, uint64_t n) { stream.FailNth(Call::kSeek, n, 5); });
  });
}

TEST(WriterSweep, EveryWriteIsShort) {
  ForEachScript([](WriterScript& script) {
    return SweepStreamOf(script, kQiroK7MErrorWriteFailed,
                         [](MemoryStream& stream, uint64_t n) { stream.ShortenNthWrite(n); });
  });
}

TEST(WriterSweep, EveryRequestToTheClientsAllocatorFails) {
  ForEachScript([](WriterScript& script) {
    return Sweep([&](uint64_t n) {
      CountingAllocator memory;
      {
        MemoryStream stream;
        script.Prepare();
        memory.FailNth(n);
        script.Run(stream, memory.Record());
        Judge(script, script.Result(), memory.FaultHit(), kQiroK7MErrorOutOfMemory, stream);
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
    ForEachScript([withAllocator](WriterScript& script) {
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
          Judge(script, script.Result(), wasHit, kQiroK7MErrorOutOfMemory, stream);
          EXPECT_EQ(memory.LiveBlocks(), 0u);
        }
        script.Forget();
        return wasHit;
      });
    });
  }
}

TEST(WriterSweep, AStreamThatFailsWithAHarmlessCodeLeavesTheWriterGood) {
  ForEachScript([](WriterScript& script) {
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
