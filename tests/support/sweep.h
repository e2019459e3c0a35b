/// @file sweep.h
/// Lets a piece of work fail at its first, second, third ... opportunity until it gets through.
#ifndef K7M_TESTS_SUPPORT_SWEEP_H
#define K7M_TESTS_SUPPORT_SWEEP_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "counting_allocator.h"
#include "heap_watch.h"
#include "memory_stream.h"

namespace k7mtest {

/// How many faults the sweeps of this program have hit.
inline uint64_t failurePoints = 0;

/// Counts them, and tells the number to whoever reads the results as XML.
inline uint64_t NoteFailurePoints(uint64_t count) {
  failurePoints += count;
  ::testing::Test::RecordProperty("failurePoints", std::to_string(failurePoints));
  return count;
}

/// Whether a sweep in which nothing fails has tested nothing.
enum class Opportunities : uint8_t { kSome, kPerhapsNone };

/// Calls `body(n)` for n = 1, 2, 3, ... until it answers that the n-th opportunity was not reached.
/// `body` arms the fault, does the work from a fresh start, judges the result, frees everything and
/// returns whether the fault was hit. Where the global operators are watched, every run must give
/// back all that it took. Returns the number of runs in which the fault was hit.
template <class Body>
uint64_t Sweep(Body&& body, Opportunities opportunities = Opportunities::kSome) {
  constexpr uint64_t kLimit = 100000;
  for (uint64_t n = 1; n <= kLimit; ++n) {
    const int64_t before = CountHeap().liveBlocks;
    const bool wasHit = body(n);
    const int64_t leaked = CountHeap().liveBlocks - before;
    EXPECT_EQ(leaked, 0) << "blocks leaked when opportunity " << n << " failed";
    if (::testing::Test::HasFailure()) {
      ADD_FAILURE() << "sweep stopped at opportunity " << n;
      return n - 1;
    }
    if (!wasHit) {
      EXPECT_TRUE(n > 1 || opportunities == Opportunities::kPerhapsNone)
          << "the fault was never reached: the sweep tested nothing";
      return NoteFailurePoints(n - 1);
    }
  }
  ADD_FAILURE() << "still failing after " << kLimit << " opportunities";
  return kLimit;
}

/// Sweeps over the calls of a stream: `work(stream)` opens, works, closes and returns its result,
/// which must be `code` when a call failed and 0 in the last run.
template <class Work>
uint64_t SweepStream(const Bytes& content, Call call, QiroK7MError code, Work&& work) {
  return Sweep([&](uint64_t n) {
    MemoryStream stream(content);
    stream.FailNth(call, n, code);
    const QiroK7MError result = work(stream);
    EXPECT_EQ(result, stream.FaultHit() ? code : 0u);
    EXPECT_STREQ(stream.Violation(), nullptr);
    return stream.FaultHit();
  });
}

/// Sweeps over the reads of a stream once for each shortfall: `body(n, shortfall)` as for Sweep().
/// Returns the number of reads that were shortened.
template <class Body>
uint64_t SweepShortReads(Body&& body, Opportunities opportunities = Opportunities::kSome) {
  uint64_t hits = 0;
  for (const Shortfall shortfall : kShortfalls) {
    hits += Sweep([&](uint64_t n) { return body(n, shortfall); }, opportunities);
  }
  return hits;
}

/// Sweeps over the memory callbacks: `work(record)` returns its result, which must be
/// kQiroK7MErrorOutOfMemory when an allocation failed and 0 in the last run.
template <class Work>
uint64_t SweepAllocator(Work&& work) {
  return Sweep([&](uint64_t n) {
    CountingAllocator allocator;
    allocator.FailNth(n);
    const QiroK7MAllocatorCallBacks record = allocator.Record();
    const QiroK7MError result = work(record);
    EXPECT_EQ(result, allocator.FaultHit() ? kQiroK7MErrorOutOfMemory : kQiroK7MErrorNone);
    EXPECT_EQ(allocator.LiveBlocks(), 0u);
    EXPECT_EQ(allocator.BadReleases(), 0u);
    return allocator.FaultHit();
  });
}

/// Sweeps over the global operators, which must be watched. `work()` must do nothing but library
/// calls between the arming and its return.
template <class Work>
uint64_t SweepHeap(Work&& work) {
  EXPECT_TRUE(HeapIsWatched()) << "link heap_watch_operators.cpp";
  return Sweep([&](uint64_t n) {
    QiroK7MError result = 0;
    bool wasHit = false;
    {
      HeapFault fault(n);
      result = work();
      wasHit = fault.Hit();
    }
    EXPECT_EQ(result, wasHit ? kQiroK7MErrorOutOfMemory : kQiroK7MErrorNone);
    return wasHit;
  });
}

}  // namespace k7mtest

#endif
