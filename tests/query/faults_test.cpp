// Every callback and every allocation failing in turn: the code comes through, nothing is kept, and
// the servicer goes on serving.
#include <gtest/gtest.h>

#include "support/fragment_file.h"
#include "support/opened_servicer.h"
#include "support/sweep.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kClientCode = 0xABCD1234;
constexpr QiroK7MError kShortRead = kQiroK7MErrorReadFailed;
constexpr Call kCallsThatRead[] = {Call::kRead, Call::kSeek, Call::kTell};

/// One way to ask: a file, perhaps its index, and the code of a failing callback.
struct Way {
  const char* name;
  std::optional<Bytes> index;
  QiroK7MError failure;  // What a request answers when a stream callback fails.
};

const FragmentFile& File() {
  static const FragmentFile file = SomeFragments(3);
  return file;
}

std::vector<Way> AllWays() {
  return {{"table", {}, kClientCode},
          {"local entries", LocalIndex(File()), kClientCode},
          {"global entries", GlobalIndex(File()), kQiroK7MErrorFragmentNotFound}};
}

std::vector<Way> WaysWithIndex() {
  std::vector<Way> ways = AllWays();
  std::erase_if(ways, [](const Way& way) { return !way.index; });
  return ways;
}

/// The same box with a size of 64 bits.
Bytes InLargeBox(const Bytes& index) { return LargeBox("afra", index.Slice(8, index.Size() - 8)); }

void ExpectAllServed(OpenedServicer& servicer) {
  for (uint32_t number = 1; number <= 3; ++number) {
    EXPECT_EQ(servicer.Get(number).data, File().fragments[number - 1]);
  }
}

/// Makes, asks and closes without a look at the books.
QiroK7MError Serve(MemoryStream& file, MemoryStream* index, const QiroK7MAllocatorCallBacks& memory,
                   uint32_t number) {
  const QiroK7MIStreamCallBacks fileRecord = file.Reading();
  const QiroK7MIStreamCallBacks indexRecord = index == nullptr ? fileRecord : index->Reading();
  auto* const untouched = reinterpret_cast<QiroK7RQueryServicer*>(&file);
  QiroK7RQueryServicer* servicer = untouched;
  QiroK7MError result = QiroK7RQueryServicerCreate(
      &fileRecord, index == nullptr ? nullptr : &indexRecord, &memory, &servicer);
  if (result != 0) {
    EXPECT_EQ(servicer, untouched) << "a failed creation wrote the handle";
    return result;
  }
  uint32_t size = 77;
  void* data = &size;
  result = QiroK7RQueryServicerGetFragment(servicer, number, 1, &size, &data);
  EXPECT_EQ(QiroK7RCloseQueryServicer(servicer), 0u);
  EXPECT_EQ(data == nullptr, result != 0);
  EXPECT_EQ(size == 0, result != 0);
  if (data == nullptr) return result;
  if (memory.release != nullptr) {
    memory.release(memory.clientData, data);
  } else {
    ::operator delete(data);
  }
  return result;
}

// Callbacks
// ----------------------------------------------------------------------------------------

TEST(FailingCallbacks, OfTheFile_AtCreation) {
  for (const Way& way : AllWays()) {
    for (const Call call : {Call::kOpen, Call::kRead, Call::kSeek, Call::kTell}) {
      const auto create = [&](uint64_t n) {
        OpenedServicer servicer(File().bytes, way.index, [&](OpenedServicer& prepared) {
          prepared.File().FailNth(call, n, kClientCode);
        });
        const bool wasHit = servicer.File().FaultHit();
        EXPECT_EQ(servicer.Result(), wasHit ? kClientCode : 0u) << way.name;
        servicer.Close();
        const bool wasOpened = call != Call::kOpen || !wasHit;
        EXPECT_EQ(servicer.File().Count(Call::kClose), wasOpened ? 1u : 0u);
        return wasHit;
      };
      // With an index the file is only opened.
      const bool isUsed = !way.index || call == Call::kOpen;
      EXPECT_EQ(Sweep(create, isUsed ? Opportunities::kSome : Opportunities::kPerhapsNone) > 0,
                isUsed);
    }
  }
}

TEST(FailingCallbacks, OfTheIndex_AtCreation) {
  const Bytes index = GlobalIndex(File());
  for (const Call call : {Call::kOpen, Call::kRead, Call::kSeek, Call::kTell}) {
    Sweep([&](uint64_t n) {
      OpenedServicer servicer(File().bytes, index, [&](OpenedServicer& prepared) {
        prepared.Index().FailNth(call, n, kClientCode);
      });
      const bool wasHit = servicer.Index().FaultHit();
      EXPECT_EQ(servicer.Result(), wasHit ? kClientCode : 0u);
      EXPECT_EQ(servicer.File().Count(Call::kOpen), 1u);
      servicer.Close();
      EXPECT_EQ(servicer.File().Count(Call::kClose), 1u);
      return wasHit;
    });
  }
}

TEST(FailingCallbacks, OfTheFile_AtARequest) {
  for (const Way& way : AllWays()) {
    uint64_t failures = 0;
    for (const Call call : kCallsThatRead) {
      const auto ask = [&](uint64_t n) {
        OpenedServicer servicer(File().bytes, way.index);
        servicer.File().FailNth(call, n, kClientCode);
        const QiroK7MError result = servicer.Get(2).result;
        const bool wasHit = servicer.File().FaultHit();
        EXPECT_EQ(result, wasHit ? way.failure : 0u) << way.name << ", call " << n;
        servicer.File().FailNth(call, 0, 0);
        ExpectAllServed(servicer);
        return wasHit;
      };
      failures += Sweep(ask, Opportunities::kPerhapsNone);
    }
    EXPECT_GE(failures, 4u) << way.name;
  }
}

TEST(FailingCallbacks, OfTheIndex_AtARequest) {
  for (const Way& way : WaysWithIndex()) {
    uint64_t failures = 0;
    for (const Call call : kCallsThatRead) {
      const auto ask = [&](uint64_t n) {
        OpenedServicer servicer(File().bytes, way.index);
        servicer.Index().FailNth(call, n, kClientCode);
        const QiroK7MError result = servicer.Get(2).result;
        const bool wasHit = servicer.Index().FaultHit();
        // What kind of entries there are is read first, and told as it is.
        const QiroK7MError failure = n == 1 ? kClientCode : way.failure;
        EXPECT_EQ(result, wasHit ? failure : 0u) << way.name << ", call " << n;
        servicer.Index().FailNth(call, 0, 0);
        ExpectAllServed(servicer);
        return wasHit;
      };
      failures += Sweep(ask, Opportunities::kPerhapsNone);
    }
    EXPECT_GE(failures, 4u) << way.name;
  }
}

TEST(FailingCallbacks, Codes26And18OfAClientPassThroughGlobalEntries) {
  for (const QiroK7MError code :
       {QiroK7MError{kQiroK7MErrorFragmentNotAvailable}, QiroK7MError{kQiroK7MErrorOutOfMemory}}) {
    OpenedServicer servicer(File().bytes, GlobalIndex(File()));
    servicer.File().FailNth(Call::kRead, 1, code);
    EXPECT_EQ(servicer.Get(1).result, code);
  }
}

/// What a request answers behind a short read; behind global entries all is 1024.
QiroK7MError ShortReadFailure(const Way& way) {
  return way.failure == kClientCode ? kShortRead : way.failure;
}

TEST(ShortReads, OfTheFile_AtCreation) {
  for (const Way& way : AllWays()) {
    const uint64_t hits = SweepShortReads(
        [&](uint64_t n, Shortfall shortfall) {
          OpenedServicer servicer(File().bytes, way.index, [&](OpenedServicer& prepared) {
            prepared.File().ShortenNthRead(n, shortfall);
          });
          const bool wasHit = servicer.File().FaultHit();
          EXPECT_EQ(servicer.Result(), wasHit ? kShortRead : 0u) << way.name << ", read " << n;
          servicer.Close();
          EXPECT_EQ(servicer.File().Count(Call::kClose), 1u);
          return wasHit;
        },
        Opportunities::kPerhapsNone);
    // With an index nothing is read of the file, and without one every box of it.
    EXPECT_EQ(hits > 100, !way.index) << hits;
    EXPECT_EQ(hits == 0, way.index.has_value()) << hits;
  }
}

TEST(ShortReads, OfTheIndex_AtCreation) {
  for (const Way& way : WaysWithIndex()) {
    for (const Bytes& index : {*way.index, InLargeBox(*way.index)}) {
      SweepShortReads([&](uint64_t n, Shortfall shortfall) {
        OpenedServicer servicer(File().bytes, index, [&](OpenedServicer& prepared) {
          prepared.Index().ShortenNthRead(n, shortfall);
        });
        const bool wasHit = servicer.Index().FaultHit();
        EXPECT_EQ(servicer.Result(), wasHit ? kShortRead : 0u) << way.name << ", read " << n;
        servicer.Close();
        EXPECT_EQ(servicer.Index().Count(Call::kClose), 1u);
        return wasHit;
      });
    }
  }
}

TEST(ShortReads, OfTheFile_AtARequest) {
  for (const Way& way : AllWays()) {
    for (uint32_t number = 1; number <= 3; ++number) {
      const uint64_t hits = SweepShortReads([&](uint64_t n, Shortfall shortfall) {
        OpenedServicer servicer(File().bytes, way.index);
        servicer.File().ShortenNthRead(n, shortfall);
        const QiroK7MError result = servicer.Get(number).result;
        const bool wasHit = servicer.File().FaultHit();
        EXPECT_EQ(result, wasHit ? ShortReadFailure(way) : 0u) << way.name << ", read " << n;
        servicer.File().ShortenNthRead(0);
        ExpectAllServed(servicer);
        return wasHit;
      });
      EXPECT_GE(hits, 9u) << "three boxes at least, and three shortfalls";
    }
  }
}

TEST(ShortReads, OfTheIndex_AtARequest) {
  for (const Way& way : WaysWithIndex()) {
    for (uint32_t number = 1; number <= 3; ++number) {
      const uint64_t hits = SweepShortReads([&](uint64_t n, Shortfall shortfall) {
        OpenedServicer servicer(File().bytes, way.index);
        servicer.Index().ShortenNthRead(n, shortfall);
        const QiroK7MError result = servicer.Get(number).result;
        const bool wasHit = servicer.Index().FaultHit();
        // What kind of entries there are is read first, and told as it is.
        const QiroK7MError failure = n == 1 ? kShortRead : ShortReadFailure(way);
        EXPECT_EQ(result, wasHit ? failure : 0u) << way.name << ", read " << n;
        servicer.Index().ShortenNthRead(0);
        ExpectAllServed(servicer);
        return wasHit;
      });
      EXPECT_GE(hits, 6u) << "the layout, an entry, and three shortfalls";
    }
  }
}

TEST(ShortReads, OfTheFragmentItselfGiveItsBufferBack) {
  for (const Way& way : AllWays()) {
    OpenedServicer servicer(File().bytes, way.index);
    const uint64_t allocations = servicer.Memory().Allocations();
    servicer.File().LimitReads(16);  // Headers come through.
    EXPECT_EQ(servicer.Get(1).result, ShortReadFailure(way)) << way.name;
    EXPECT_EQ(servicer.Memory().Allocations(), allocations + 1);
    servicer.File().LimitReads(0);
    ExpectAllServed(servicer);
  }
}

// Memory
// -------------------------------------------------------------------------------------------

TEST(FailingMemory, ThroughTheCallbacks) {
  for (const Way& way : AllWays()) {
    EXPECT_GE(SweepAllocator([&](const QiroK7MAllocatorCallBacks& memory) {
                MemoryStream file(File().bytes);
                MemoryStream index(way.index.value_or(Bytes()));
                const QiroK7MError result = Serve(file, way.index ? &index : nullptr, memory, 2);
                EXPECT_FALSE(file.IsOpen());
                EXPECT_EQ(file.Count(Call::kClose), file.Count(Call::kOpen));
                EXPECT_EQ(index.Count(Call::kClose), index.Count(Call::kOpen));
                return result;
              }),
              2u)
        << way.name;
  }
}

TEST(FailingMemory, ThroughTheGlobalOperators) {
  for (const Way& way : AllWays()) {
    const uint64_t failures = Sweep([&](uint64_t n) {
      MemoryStream file(File().bytes);
      MemoryStream index(way.index.value_or(Bytes()));
      const QiroK7MAllocatorCallBacks memory;
      HeapFault fault(n);
      const QiroK7MError result = Serve(file, way.index ? &index : nullptr, memory, 2);
      // What asks without insisting goes on without the memory.
      const bool isFailure = fault.Hit() && !fault.WasQuiet();
      EXPECT_EQ(result, isFailure ? kQiroK7MErrorOutOfMemory : kQiroK7MErrorNone);
      EXPECT_FALSE(file.IsOpen());
      return fault.Hit();
    });
    EXPECT_GE(failures, 3u) << way.name;
  }
}

TEST(FailingMemory, AFragmentIsTheOnlyAllocationOfARequest) {
  for (const Way& way : AllWays()) {
    OpenedServicer servicer(File().bytes, way.index);
    servicer.Memory().FailNth(1);
    EXPECT_EQ(servicer.Get(3).result, kQiroK7MErrorOutOfMemory) << way.name;
    EXPECT_TRUE(servicer.Memory().FaultHit());
    ExpectAllServed(servicer);
    servicer.Memory().FailNth(2);
    EXPECT_EQ(servicer.Get(3).result, 0u);
    EXPECT_FALSE(servicer.Memory().FaultHit());
    servicer.Memory().FailNth(0);
    uint32_t size = 0;
    void* data = nullptr;
    const uint64_t allocations = CountHeap().allocations;
    servicer.File().StopLogging();
    servicer.Index().StopLogging();
    EXPECT_EQ(QiroK7RQueryServicerGetFragment(servicer.Handle(), 3, 1, &size, &data), 0u);
    EXPECT_EQ(CountHeap().allocations, allocations) << "the ordinary heap is not used";
    servicer.Memory().Record().release(&servicer.Memory(), data);
  }
}

struct Thrower {
  static void* Number(void*, uint64_t) { throw 42; }
  static void* Null(void*, uint64_t) { return nullptr; }
};

TEST(FailingMemory, WhatAnAllocatorThrowsHasACodeOfItsKind) {
  const auto create = [](void* (*allocate)(void*, uint64_t)) {
    MemoryStream file(File().bytes);
    QiroK7MAllocatorCallBacks memory;
    memory.allocate = allocate;
    return Serve(file, nullptr, memory, 1);
  };
  EXPECT_EQ(create(Thrower::Number), kQiroK7MErrorUnknown);
  EXPECT_EQ(create(Thrower::Null), kQiroK7MErrorOutOfMemory);
}

// Usage errors
// -----------------------------------------------------------------------------------

TEST(UsageErrors, LeaveTheServicerUsable) {
  for (const Way& way : AllWays()) {
    OpenedServicer servicer(File().bytes, way.index);
    void* data = nullptr;
    EXPECT_NE(servicer.Get(0).result, 0u);
    ExpectAllServed(servicer);
    EXPECT_NE(servicer.Get(4).result, 0u);
    ExpectAllServed(servicer);
    const QiroK7MError segment0 = kQiroK7MErrorInvalidSegmentNumber;
    EXPECT_EQ(servicer.Get(1, 0).result, way.index ? segment0 : 0u);
    ExpectAllServed(servicer);
    EXPECT_EQ(QiroK7RQueryServicerGetFragment(servicer.Handle(), 1, 1, nullptr, &data),
              kQiroK7MErrorInvalidArgument);
    ExpectAllServed(servicer);
  }
}

}  // namespace
}  // namespace k7mtest
