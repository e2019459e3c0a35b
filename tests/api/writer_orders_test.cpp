// Faults in every order of calls that a good writer allows, up to a length: each call fails at each
// of its opportunities behind everything that may have come before it.
#include "writer_orders.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "support/box_builder.h"
#include "support/box_finder.h"
#include "support/heap_watch.h"
#include "support/opened_reader.h"
#include "writer_verdict.h"

namespace k7mtest {
namespace {

using Steps = std::vector<ScriptStep>;

/// How many opportunities to fail a run has had up to its last step.
struct Opportunities {
  uint64_t calls = 0;        // Of the stream.
  uint64_t writes = 0;       // Of these.
  uint64_t requests = 0;     // To the client's allocator.
  uint64_t allocations = 0;  // By the global operators.
};

Opportunities CountIn(const Steps& steps, bool isFragmented) {
  CountingAllocator memory;
  MemoryStream stream;
  WriterScript script(steps, isFragmented);
  script.Prepare();
  stream.StopLogging();
  const uint64_t before = CountHeap().allocations;
  script.Run(stream, memory.Record());
  const uint64_t allocations = CountHeap().allocations - before;
  const ScriptResult& result = script.Result();
  EXPECT_EQ(FirstFailure(result), steps.size());
  ExpectBuffersBack(script, result);
  const uint64_t calls =
      steps.empty() ? result.callsBehindDestroy - 1 : result.callsBehindStep.back();
  return {calls, stream.Count(Call::kWrite), memory.Allocations(), allocations};
}

/// The opportunities of the last step are those behind `begin` up to `end`; without steps they are
/// those of the creation.
struct LastStep {
  Opportunities begin;
  Opportunities end;
};

LastStep LastStepOf(const Steps& steps, bool isFragmented) {
  LastStep last;
  last.end = CountIn(steps, isFragmented);
  if (!steps.empty()) last.begin = CountIn(Steps(steps.begin(), steps.end() - 1), isFragmented);
  return last;
}

bool EndsClosed(const Steps& steps) { return !steps.empty() && steps.back().what == Do::kClose; }

std::string Named(const Steps& steps) {
  static const char* const kNames[] = {"track",  "describe", "set",   "ulb",  "box",
                                       "sample", "gap",      "flush", "close"};
  std::string text;
  for (const ScriptStep& step : steps)
    text += std::string(kNames[static_cast<int>(step.what)]) + ' ';
  return text;
}

/// `sweep(steps, isFragmented)` gives the number of faults that were hit, for the creation and for
/// every order.
template <class SweepOne>
void SweepOrders(size_t maxLength, SweepOne sweep) {
  uint64_t orders = 0;
  uint64_t faults = 0;
  for (const bool isFragmented : {false, true}) {
    SCOPED_TRACE(isFragmented ? "fragmented" : "plain");
    const auto visit = [&](const Steps& steps) {
      if (::testing::Test::HasFailure()) return;
      SCOPED_TRACE(Named(steps));
      ++orders;
      faults += sweep(steps, isFragmented);
    };
    visit({});
    ForEachOrder(maxLength, visit);
  }
  EXPECT_GT(faults, orders / 2);  // Many calls take no memory by the global operators.
  ::testing::Test::RecordProperty("orders", std::to_string(orders));
  ::testing::Test::RecordProperty("faults", std::to_string(faults));
}

/// Runs the steps, with something behind them that a bad writer refuses, and judges.
/// `run(stream, memory, script)` arms one fault, runs the script and tells whether it was hit.
template <class Run>
uint64_t FailOnce(const Steps& steps, bool isFragmented, const UnharmedRun& unharmed,
                  QiroK7MError code, Run run) {
  Steps all = steps;
  if (!EndsClosed(steps)) all.push_back({Do::kFlush});
  all.insert(all.end(), {{Do::kClose}, {Do::kClose}});
  const int64_t blocks = CountHeap().liveBlocks;
  bool wasHit = false;
  {
    CountingAllocator memory;
    MemoryStream stream;
    WriterScript script(all, isFragmented);
    script.Prepare();
    stream.StopLogging();
    wasHit = run(stream, memory, script);
    const ScriptResult& result = script.Result();
    EXPECT_TRUE(wasHit);
    Judge(script, result, wasHit, code, stream, unharmed);
    if (result.created == 0) {
      EXPECT_EQ(FirstFailure(result) + 1, steps.size());
    }
    EXPECT_EQ(memory.LiveBlocks(), 0u);
    EXPECT_EQ(memory.BadReleases(), 0u);
  }
  EXPECT_EQ(CountHeap().liveBlocks, blocks);
  return wasHit ? 1 : 0;
}

/// Whether the writer answers every step with 0.
bool IsAllowed(const Steps& steps, bool isFragmented) {
  CountingAllocator memory;
  MemoryStream stream;
  WriterScript script(steps, isFragmented);
  script.Prepare();
  script.Run(stream, memory.Record());
  return FirstFailure(script.Result()) == steps.size();
}

/// What ForEachOrder() leaves out though a good writer allows it.
bool IsLeftOut(const Steps& steps) {
  size_t tracks = 0;
  size_t described = 0;
  size_t idleFlushes = 0;
  bool hasNewSample = false;
  bool isClosed = false;
  for (const ScriptStep& step : steps) {
    if (isClosed) return true;
    isClosed = step.what == Do::kClose;
    tracks += step.what == Do::kAddTrack ? 1 : 0;
    if (step.what == Do::kDescribe && step.track != described++) return true;
    idleFlushes += step.what == Do::kFlush && !hasNewSample ? 1 : 0;
    hasNewSample = step.what == Do::kSample || (hasNewSample && step.what != Do::kFlush);
  }
  return tracks > 2 || idleFlushes > 1;
}

/// Calls `visit` for every order of `length` calls, whether allowed or not.
void ForAnyOrder(size_t length, Steps& steps, const std::function<void(const Steps&)>& visit) {
  if (steps.size() == length) return visit(steps);
  const uint64_t time = 10 * steps.size();
  for (const ScriptStep& next :
       {ScriptStep{Do::kAddTrack}, ScriptStep{Do::kDescribe, 0}, ScriptStep{Do::kDescribe, 1},
        ScriptStep{Do::kSample, 0, time}, ScriptStep{Do::kSample, 1, time}, ScriptStep{Do::kFlush},
        ScriptStep{Do::kClose}}) {
    steps.push_back(next);
    ForAnyOrder(length, steps, visit);
    steps.pop_back();
  }
}

std::string KeyOf(const Steps& steps) {
  std::string key;
  for (const ScriptStep& step : steps) {
    key += static_cast<char>('A' + static_cast<int>(step.what));
    key += static_cast<char>('0' + step.track);
  }
  return key;
}

TEST(WriterOrders, AreAllThatAGoodWriterAllows) {
  constexpr size_t kLength = 4;
  std::set<std::string> visited;
  ForEachOrder(kLength, [&](const Steps& steps) {
    EXPECT_TRUE(visited.insert(KeyOf(steps)).second) << Named(steps);
  });
  for (const bool isFragmented : {false, true}) {
    std::set<std::string> allowed;
    for (size_t length = 1; length <= kLength; ++length) {
      Steps steps;
      ForAnyOrder(length, steps, [&](const Steps& order) {
        if (!IsLeftOut(order) && IsAllowed(order, isFragmented)) allowed.insert(KeyOf(order));
      });
    }
    EXPECT_EQ(allowed, visited);
  }
}

constexpr QiroK7MError kOwnCode = 4711;

TEST(WriterOrders, EveryCallOfTheStreamMayFail) {
  SweepOrders(5, [](const Steps& steps, bool isFragmented) {
    const LastStep last = LastStepOf(steps, isFragmented);
    const UnharmedRun unharmed(steps, isFragmented);
    uint64_t faults = 0;
    for (uint64_t n = last.begin.calls + 1; n <= last.end.calls; ++n) {
      faults +=
          FailOnce(steps, isFragmented, unharmed, kOwnCode,
                   [n](MemoryStream& stream, CountingAllocator& memory, WriterScript& script) {
                     stream.FailNth(Call::kAny, n, kOwnCode);
                     script.Run(stream, memory.Record());
                     return stream.FaultHit();
                   });
    }
    return faults;
  });
}

TEST(WriterOrders, EveryRequestToTheClientsAllocatorMayFail) {
  SweepOrders(6, [](const Steps& steps, bool isFragmented) {
    const LastStep last = LastStepOf(steps, isFragmented);
    const UnharmedRun unharmed(steps, isFragmented);
    uint64_t faults = 0;
    for (uint64_t n = last.begin.requests + 1; n <= last.end.requests; ++n) {
      faults +=
          FailOnce(steps, isFragmented, unharmed, kQiroK7MErrorOutOfMemory,
                   [n](MemoryStream& stream, CountingAllocator& memory, WriterScript& script) {
                     memory.FailNth(n);
                     script.Run(stream, memory.Record());
                     return memory.FaultHit();
                   });
    }
    return faults;
  });
}

TEST(WriterOrders, EveryAllocationByTheGlobalOperatorsMayFail) {
  ASSERT_TRUE(HeapIsWatched());
  SweepOrders(6, [](const Steps& steps, bool isFragmented) {
    const LastStep last = LastStepOf(steps, isFragmented);
    const UnharmedRun unharmed(steps, isFragmented);
    uint64_t faults = 0;
    for (uint64_t n = last.begin.allocations + 1; n <= last.end.allocations; ++n) {
      faults +=
          FailOnce(steps, isFragmented, unharmed, kQiroK7MErrorOutOfMemory,
                   [n](MemoryStream& stream, CountingAllocator& memory, WriterScript& script) {
                     const QiroK7MAllocatorCallBacks record = memory.Record();
                     const HeapFault fault(n);
                     script.Run(stream, record);
                     return fault.Hit();
                   });
    }
    return faults;
  });
}

TEST(WriterOrders, ADestructionMayFailToCloseTheStream) {
  SweepOrders(5, [](const Steps& steps, bool isFragmented) -> uint64_t {
    if (EndsClosed(steps)) return 2;
    CountingAllocator memory;
    MemoryStream stream;
    WriterScript script(steps, isFragmented);
    script.Prepare();
    stream.FailNth(Call::kClose, 1, kOwnCode);
    script.Run(stream, memory.Record());
    EXPECT_TRUE(stream.FaultHit());
    Judge(script, script.Result(), true, kOwnCode, stream, UnharmedRun(steps, isFragmented));
    EXPECT_EQ(memory.LiveBlocks(), 0u);
    return 2;
  });
}

/// The data of the samples of each track, in the order in which the tracks were asked for.
using TrackData = std::map<size_t, std::vector<Bytes>>;

/// What the file of a run must hold: the samples that were added without failure. `lost` lacks
/// those of the fragment that was open when a step failed.
struct Expectation {
  TrackData whole;
  TrackData lost;
};

Expectation Expect(const Steps& steps, const ScriptResult& result, bool isFragmented) {
  Expectation expected;
  TrackData open;
  const auto keep = [&expected, &open] {
    for (const auto& [track, data] : open) {
      auto& kept = expected.lost[track];
      kept.insert(kept.end(), data.begin(), data.end());
    }
    open.clear();
  };
  for (size_t i = 0; i < steps.size(); ++i) {
    const bool isSample = steps[i].what == Do::kSample && result.codes[i] == 0;
    const bool isFlush = steps[i].what == Do::kFlush || steps[i].what == Do::kClose;
    if (isSample) {
      expected.whole[steps[i].track].push_back(WriterScript::DataOf(i));
      open[steps[i].track].push_back(WriterScript::DataOf(i));
    }
    if (isFlush && result.codes[i] != 0 && isFragmented) open.clear();
    if (isFlush || !isFragmented) keep();
  }
  return expected;
}

/// The file is whole to its last byte, and holds what is expected.
void ExpectFile(const Bytes& file, const Expectation& expected) {
  EXPECT_EQ(CodesIn(file + Box("last")).back(), "last") << "bytes that are no box";
  const OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  TrackData found;
  const std::vector<QiroK7MTrack*> tracks = reader.Tracks();
  for (size_t i = 0; i < tracks.size(); ++i) {
    for (const ReadSample& sample : MediaSamples(reader, tracks[i])) {
      EXPECT_NE(sample.descriptor, nullptr);
      found[i].push_back(sample.data);
    }
  }
  EXPECT_TRUE(found == expected.whole || found == expected.lost);
}

/// A stream may fail with a code that leaves the writer good. Whatever was added before and comes
/// later is then in the file all the same; a failing flush may lose the fragment that it ends.
TEST(WriterOrders, AHarmlessFailureSpoilsNothingElse) {
  static constexpr QiroK7MError kHarmless = 11;
  SweepOrders(5, [](const Steps& steps, bool isFragmented) -> uint64_t {
    // A document without tracks cannot be read.
    if (steps.empty() || EndsClosed(steps) || steps[0].what != Do::kAddTrack) return 2;
    const LastStep last = LastStepOf(steps, isFragmented);
    Steps all = steps;
    all.push_back(steps.back());
    all.push_back({Do::kClose});
    uint64_t faults = 0;
    for (uint64_t n = last.begin.writes + 1; n <= last.end.writes; ++n) {
      CountingAllocator memory;
      MemoryStream stream;
      WriterScript script(all, isFragmented);
      script.Prepare();
      stream.StopLogging();
      stream.FailNth(Call::kWrite, n, kHarmless);
      script.Run(stream, memory.Record());
      const ScriptResult& result = script.Result();
      EXPECT_EQ(FirstFailure(result) + 1, steps.size());
      EXPECT_EQ(result.codes[steps.size() - 1], kHarmless);
      EXPECT_EQ(result.codes[steps.size()], 0u);
      EXPECT_EQ(result.codes.back(), 0u);
      ExpectBuffersBack(script, result);
      ExpectFile(stream.Content(), Expect(all, result, isFragmented));
      ++faults;
      if (::testing::Test::HasFailure()) {
        ADD_FAILURE() << "write " << n;
        return faults;
      }
    }
    return 2 + faults;
  });
}

}  // namespace
}  // namespace k7mtest
