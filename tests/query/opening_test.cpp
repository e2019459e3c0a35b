// Making and closing a servicer, and arguments that cannot be used.
#include <gtest/gtest.h>

#include <functional>

#include "support/fragment_file.h"
#include "support/heap_watch.h"
#include "support/opened_servicer.h"

namespace k7mtest {
namespace {

constexpr QiroK7MError kNull = kQiroK7MErrorInvalidArgument;
constexpr QiroK7MError kClientCode = 0xABCD1234;

/// The arguments of the create function, all of them good.
struct Creation {
  FragmentFile fragments = SomeFragments(2);
  MemoryStream file{fragments.bytes};
  MemoryStream index{LocalIndex(fragments)};
  CountingAllocator memory;
  QiroK7MIStreamCallBacks fileRecord = file.Reading();
  QiroK7MIStreamCallBacks indexRecord = index.Reading();
  QiroK7MAllocatorCallBacks allocator = memory.Record();
  QiroK7RQueryServicer* const untouched = reinterpret_cast<QiroK7RQueryServicer*>(&file);
  QiroK7RQueryServicer* out = untouched;

  void ExpectNothingHappened() const {
    EXPECT_EQ(out, untouched);
    EXPECT_EQ(file.Count(Call::kAny) + index.Count(Call::kAny), 0u);
    EXPECT_EQ(memory.LiveBlocks(), 0u);
  }
};

TEST(Creation, ItsArgumentsButTheIndexAreRequired_Error20) {
  Creation args;
  EXPECT_EQ(QiroK7RQueryServicerCreate(nullptr, &args.indexRecord, &args.allocator, &args.out),
            kNull);
  EXPECT_EQ(QiroK7RQueryServicerCreate(&args.fileRecord, &args.indexRecord, nullptr, &args.out),
            kNull);
  EXPECT_EQ(
      QiroK7RQueryServicerCreate(&args.fileRecord, &args.indexRecord, &args.allocator, nullptr),
      kNull);
  EXPECT_EQ(QiroK7RQueryServicerCreate(nullptr, nullptr, nullptr, nullptr), kNull);
  args.ExpectNothingHappened();
}

TEST(Creation, EveryReadingCallbackOfBothStreamsIsRequired_Error20) {
  const std::function<void(QiroK7MIStreamCallBacks&)> holes[] = {
      [](QiroK7MIStreamCallBacks& record) { record.open = nullptr; },
      [](QiroK7MIStreamCallBacks& record) { record.close = nullptr; },
      [](QiroK7MIStreamCallBacks& record) { record.readSome = nullptr; },
      [](QiroK7MIStreamCallBacks& record) { record.seek = nullptr; },
      [](QiroK7MIStreamCallBacks& record) { record.tell = nullptr; },
  };
  for (const auto& makeHole : holes) {
    Creation args;
    makeHole(args.fileRecord);
    EXPECT_EQ(
        QiroK7RQueryServicerCreate(&args.fileRecord, &args.indexRecord, &args.allocator, &args.out),
        kNull);
    args.fileRecord = args.file.Reading();
    makeHole(args.indexRecord);
    EXPECT_EQ(
        QiroK7RQueryServicerCreate(&args.fileRecord, &args.indexRecord, &args.allocator, &args.out),
        kNull);
    args.ExpectNothingHappened();
  }
}

TEST(Creation, AcquireAndReleaseMayBeNull) {
  Creation args;
  args.fileRecord.acquire = args.indexRecord.acquire = nullptr;
  args.fileRecord.release = args.indexRecord.release = nullptr;
  ASSERT_EQ(
      QiroK7RQueryServicerCreate(&args.fileRecord, &args.indexRecord, &args.allocator, &args.out),
      0u);
  EXPECT_EQ(QiroK7RCloseQueryServicer(args.out), 0u);
}

TEST(Creation, TheRecordsAreCopied) {
  Creation args;
  ASSERT_EQ(
      QiroK7RQueryServicerCreate(&args.fileRecord, &args.indexRecord, &args.allocator, &args.out),
      0u);
  args.fileRecord = args.indexRecord = {};
  args.allocator = {};
  uint32_t size = 0;
  void* data = nullptr;
  EXPECT_EQ(QiroK7RQueryServicerGetFragment(args.out, 2, 1, &size, &data), 0u);
  EXPECT_EQ(size, args.fragments.fragments[1].Size());
  args.memory.Record().release(&args.memory, data);
  EXPECT_EQ(QiroK7RCloseQueryServicer(args.out), 0u);
  EXPECT_EQ(args.memory.LiveBlocks(), 0u);
}

TEST(Creation, EachStreamIsOpenedAndClosedOnce) {
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(file.bytes, LocalIndex(file));
  EXPECT_TRUE(servicer.File().IsOpen());
  EXPECT_TRUE(servicer.Index().IsOpen());
  servicer.Close();
  for (MemoryStream* stream : {&servicer.File(), &servicer.Index()}) {
    EXPECT_EQ(stream->Count(Call::kOpen), 1u);
    EXPECT_EQ(stream->Count(Call::kClose), 1u);
    EXPECT_EQ(stream->Count(Call::kAcquire) + stream->Count(Call::kRelease), 0u);
  }
}

TEST(Creation, AnIndexThatCannotBeOpenedClosesTheFile) {
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(file.bytes, LocalIndex(file), [](OpenedServicer& prepared) {
    prepared.Index().FailNth(Call::kOpen, 1, kClientCode);
  });
  EXPECT_EQ(servicer.Result(), kClientCode);
  EXPECT_EQ(servicer.File().Count(Call::kClose), 1u);
  EXPECT_EQ(servicer.Index().Count(Call::kClose), 0u) << "it never opened";
}

TEST(Creation, AFileThatCannotBeOpenedLeavesTheIndexAlone) {
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(file.bytes, LocalIndex(file), [](OpenedServicer& prepared) {
    prepared.File().FailNth(Call::kOpen, 1, kClientCode);
  });
  EXPECT_EQ(servicer.Result(), kClientCode);
  EXPECT_EQ(servicer.File().Count(Call::kClose), 0u);
  EXPECT_EQ(servicer.Index().Count(Call::kAny), 0u);
}

TEST(Creation, WarningsAreIgnored) {
  // Stray bytes at the end, and a list of brands that is not a multiple of 4 bytes long.
  const Bytes oddBrands = Box("ftyp", Bytes().Code("k7r ").U32(0).Fill(3));
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(oddBrands + file.bytes + Bytes{1, 2, 3});
  ASSERT_EQ(servicer.Result(), 0u);
  EXPECT_EQ(servicer.Get(1).data, file.fragments[0]);
}

TEST(Requests, ServicerAndOutputsAreRequired_Error20) {
  const FragmentFile file = SomeFragments(2);
  OpenedServicer servicer(file.bytes);
  uint32_t size = 77;
  void* data = &size;
  EXPECT_EQ(QiroK7RQueryServicerGetFragment(nullptr, 1, 1, &size, &data), kNull);
  EXPECT_EQ(QiroK7RQueryServicerGetFragment(servicer.Handle(), 1, 1, nullptr, &data), kNull);
  EXPECT_EQ(QiroK7RQueryServicerGetFragment(servicer.Handle(), 1, 1, &size, nullptr), kNull);
  EXPECT_EQ(QiroK7RQueryServicerGetFragment(servicer.Handle(), 0, 0, nullptr, nullptr), kNull);
  EXPECT_EQ(size, 77u) << "no other argument is touched";
  EXPECT_EQ(data, &size);
  EXPECT_EQ(servicer.Get(1).data, file.fragments[0]);
}

TEST(Requests, AFragmentOutlivesTheServicer) {
  const FragmentFile file = SomeFragments(2);
  CountingAllocator memory;
  MemoryStream stream(file.bytes);
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MAllocatorCallBacks allocator = memory.Record();
  QiroK7RQueryServicer* servicer = nullptr;
  ASSERT_EQ(QiroK7RQueryServicerCreate(&record, nullptr, &allocator, &servicer), 0u);
  uint32_t size = 0;
  void* data = nullptr;
  ASSERT_EQ(QiroK7RQueryServicerGetFragment(servicer, 2, 1, &size, &data), 0u);
  EXPECT_EQ(QiroK7RCloseQueryServicer(servicer), 0u);
  EXPECT_EQ(memory.LiveBlocks(), 1u);
  EXPECT_EQ(memory.LiveBytes(), size);
  const auto* bytes = static_cast<const uint8_t*>(data);
  EXPECT_EQ(Bytes(std::vector<uint8_t>(bytes, bytes + size)), file.fragments[1]);
  memory.Record().release(&memory, data);
}

TEST(Requests, WithoutCallbacksAFragmentComesFromTheGlobalOperators) {
  const FragmentFile file = SomeFragments(1);
  MemoryStream stream(file.bytes);
  const QiroK7MIStreamCallBacks record = stream.Reading();
  const QiroK7MAllocatorCallBacks allocator;
  QiroK7RQueryServicer* servicer = nullptr;
  ASSERT_EQ(QiroK7RQueryServicerCreate(&record, nullptr, &allocator, &servicer), 0u);
  const int64_t blocks = CountHeap().liveBlocks;
  uint32_t size = 0;
  void* data = nullptr;
  ASSERT_EQ(QiroK7RQueryServicerGetFragment(servicer, 1, 1, &size, &data), 0u);
  EXPECT_EQ(CountHeap().liveBlocks, blocks + 1);
  ::operator delete(data);
  EXPECT_EQ(QiroK7RCloseQueryServicer(servicer), 0u);
}

TEST(Closing, TakesNull) { EXPECT_EQ(QiroK7RCloseQueryServicer(nullptr), 0u); }

TEST(Closing, IgnoresAFailingClose) {
  const FragmentFile file = SomeFragments(1);
  OpenedServicer servicer(file.bytes, LocalIndex(file));
  servicer.File().FailNth(Call::kClose, 1, kClientCode);
  servicer.Index().FailNth(Call::kClose, 1, kClientCode);
  servicer.Close();
  EXPECT_TRUE(servicer.File().FaultHit());
  EXPECT_TRUE(servicer.Index().FaultHit());
}

}  // namespace
}  // namespace k7mtest
