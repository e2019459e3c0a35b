#include "base/allocation.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "support/counting_allocator.h"
#include "support/heap_watch.h"

namespace qiro::k7m::impl {
namespace {

using k7mtest::CountHeap;
using k7mtest::CountingAllocator;
using k7mtest::HeapIsWatched;

class Thing : public K7MBase {
 public:
  explicit Thing(const QiroK7MAllocatorCallBacks* allocator, bool throws = false)
      : K7MBase(allocator) {
    if (throws) {
      throw std::runtime_error("as ordered");
    }
  }
  std::array<uint64_t, 8> payload{};
};

struct Other {
  virtual ~Other() = default;
  int number = 0;
};

/// As the boxes that offer an interface besides: a pointer to Other is not a pointer to the block.
class ThingAndOther : public Thing, public Other {
 public:
  explicit ThingAndOther(const QiroK7MAllocatorCallBacks* allocator) : Thing(allocator) {}
};

TEST(K7MBase, ObjectsComeFromTheCallbacksAndGoBackThere) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  const auto before = CountHeap();
  K7MBase* object = new (&record) Thing(&record);
  EXPECT_EQ(counter.LiveBlocks(), 1U);
  EXPECT_EQ(counter.LiveBytes(), sizeof(Thing));
  delete object;
  EXPECT_EQ(counter.LiveBlocks(), 0U);
  EXPECT_EQ(counter.Releases(), 1U);
  EXPECT_EQ(counter.BadReleases(), 0U);
  ASSERT_TRUE(HeapIsWatched());
  EXPECT_EQ(CountHeap().liveBlocks, before.liveBlocks);
}

TEST(K7MBase, TheBlockGoesBackWhateverBaseTheObjectIsDeletedThrough) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  K7MBase* base = new (&record) ThingAndOther(&record);
  delete base;
  Thing* thing = new (&record) ThingAndOther(&record);
  delete thing;
  Other* other = new (&record) ThingAndOther(&record);
  delete other;
  EXPECT_EQ(counter.Releases(), 3U);
  EXPECT_EQ(counter.LiveBlocks(), 0U);
  EXPECT_EQ(counter.BadReleases(), 0U);
}

TEST(K7MBase, TheRecordIsCopiedAndMayGo) {
  CountingAllocator counter;
  QiroK7MAllocatorCallBacks record = counter.Record();
  auto* object = new (&record) Thing(&record);
  record = QiroK7MAllocatorCallBacks();
  EXPECT_EQ(object->GetAllocator()->clientData, &counter);
  delete object;
  EXPECT_EQ(counter.LiveBlocks(), 0U);
}

TEST(K7MBase, AThrowingConstructorGivesTheBlockBack) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  EXPECT_THROW(new (&record) Thing(&record, true), std::runtime_error);
  EXPECT_EQ(counter.Allocations(), 1U);
  EXPECT_EQ(counter.LiveBlocks(), 0U);
  EXPECT_EQ(counter.BadReleases(), 0U);
}

TEST(K7MBase, WithoutARecordTheGlobalOperatorsAreUsed) {
  ASSERT_TRUE(HeapIsWatched());
  const auto before = CountHeap();
  auto* object = new (static_cast<const QiroK7MAllocatorCallBacks*>(nullptr)) Thing(nullptr);
  EXPECT_EQ(CountHeap().allocations, before.allocations + 1);
  EXPECT_EQ(object->GetAllocator()->allocate, nullptr);
  EXPECT_EQ(object->GetAllocator()->release, nullptr);
  EXPECT_EQ(object->GetAllocator()->clientData, nullptr);
  EXPECT_EQ(object->GetAllocator()->size, 32U);
  delete object;
  EXPECT_EQ(CountHeap().liveBlocks, before.liveBlocks);
}

TEST(K7MBase, NullCallbacksMeanTheGlobalOperators) {
  ASSERT_TRUE(HeapIsWatched());
  QiroK7MAllocatorCallBacks record;
  record.clientData = &record;
  const auto before = CountHeap();
  auto* object = new (&record) Thing(&record);
  EXPECT_EQ(CountHeap().allocations, before.allocations + 1);
  delete object;
  EXPECT_EQ(CountHeap().liveBlocks, before.liveBlocks);
}

TEST(K7MBase, OnlyTheNullCallbackIsReplacedByTheGlobalOperator) {
  struct Client {
    static void* Allocate(void* data, uint64_t size) {
      ++*static_cast<int*>(data);
      return ::operator new(size);
    }
    static void Release(void* data, void* block) {
      ++*static_cast<int*>(data);
      ::operator delete(block);
    }
  };
  const auto before = CountHeap().liveBlocks;
  int allocations = 0;
  QiroK7MAllocatorCallBacks withAllocate;
  withAllocate.clientData = &allocations;
  withAllocate.allocate = &Client::Allocate;
  delete new (&withAllocate) Thing(&withAllocate);
  EXPECT_EQ(allocations, 1);

  int releases = 0;
  QiroK7MAllocatorCallBacks withRelease;
  withRelease.clientData = &releases;
  withRelease.release = &Client::Release;
  delete new (&withRelease) Thing(&withRelease);
  EXPECT_EQ(releases, 1);
  EXPECT_EQ(CountHeap().liveBlocks, before);
}

TEST(K7MBase, AFailureOfTheCallbackPasses) {
  CountingAllocator counter;
  counter.FailNth(1);
  const QiroK7MAllocatorCallBacks record = counter.Record();
  EXPECT_THROW(new (&record) Thing(&record), std::bad_alloc);
  EXPECT_EQ(counter.BadReleases(), 0U);
}

TEST(K7MAllocator, ATableLivesInTheClientsMemory) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  {
    const auto before = CountHeap();
    K7MVector<uint64_t> table{K7MAllocator<uint64_t>(&record)};
    for (uint64_t i = 0; i < 1000; ++i) {
      table.push_back(i);
    }
    EXPECT_EQ(CountHeap().allocations, before.allocations);
    EXPECT_EQ(counter.LiveBytes(), table.capacity() * 8);
    EXPECT_EQ(table[999], 999U);
  }
  EXPECT_EQ(counter.LiveBlocks(), 0U);
  EXPECT_EQ(counter.BadReleases(), 0U);
}

TEST(K7MAllocator, WithoutCallbacksATableLivesOnTheHeap) {
  ASSERT_TRUE(HeapIsWatched());
  const auto before = CountHeap();
  {
    K7MVector<uint32_t> table;
    table.resize(10);
    K7MVector<uint32_t> alsoNull{K7MAllocator<uint32_t>(nullptr)};
    alsoNull.resize(10);
    EXPECT_EQ(CountHeap().allocations, before.allocations + 2);
  }
  EXPECT_EQ(CountHeap().liveBlocks, before.liveBlocks);
}

TEST(K7MAllocator, CopiesAndRebindsTheWholeRecord) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  const K7MAllocator<uint8_t> bytes(&record);
  const K7MAllocator<uint64_t> numbers(bytes);
  EXPECT_EQ(numbers.CallBacks().clientData, record.clientData);
  EXPECT_EQ(numbers.CallBacks().allocate, record.allocate);
  EXPECT_EQ(numbers.CallBacks().release, record.release);
  EXPECT_EQ(numbers.CallBacks().size, 32U);
  EXPECT_TRUE(bytes == numbers);
  EXPECT_FALSE(bytes == K7MAllocator<uint8_t>());
}

TEST(K7MAllocator, ACountWhoseBytesDoNotFitIsExhaustedMemory) {
  K7MAllocator<uint64_t> allocator;
  EXPECT_THROW(static_cast<void>(allocator.allocate(SIZE_MAX / 4)), std::bad_alloc);
}

TEST(ArrayAutoPtr, FreesItsBufferOnce) {
  const auto before = CountHeap().liveBlocks;
  {
    ArrayAutoPtr<unsigned char> buffer(new unsigned char[10]);
    buffer[9] = 7;
    EXPECT_EQ(buffer.Get()[9], 7);
    buffer.Reset(buffer.Get());
    EXPECT_EQ(buffer[9], 7);
    buffer.Reset(new unsigned char[20]);
    EXPECT_EQ(CountHeap().liveBlocks, before + 1);
    buffer.DeletePtr();
    EXPECT_EQ(buffer.Get(), nullptr);
    buffer.DeletePtr();
    ArrayAutoPtr<unsigned int> numbers;
    EXPECT_EQ(numbers.Get(), nullptr);
    numbers.Reset(new unsigned int[3]);
  }
  EXPECT_EQ(CountHeap().liveBlocks, before);
}

}  // namespace
}  // namespace qiro::k7m::impl
