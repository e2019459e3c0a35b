// The exported functions that do nothing, or next to nothing.
#include <gtest/gtest.h>

#include "k7m/k7m.h"
#include "support/counting_allocator.h"
#include "support/memory_stream.h"

namespace k7mtest {
namespace {

/// An address that nobody may follow.
template <class T>
T* Poison() {
  return reinterpret_cast<T*>(uintptr_t{0x10});
}

TEST(LibraryVersion, IsAConstantText) {
  EXPECT_STREQ(QiroK7MGetLibraryVersion(), "QIROX_INFO BUILDVERSION : 61.3261");
  EXPECT_EQ(QiroK7MGetLibraryVersion(), QiroK7MGetLibraryVersion());
}

TEST(InertFunctions, CreateAllocatorLeavesItsOutputAsItWas) {
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  Allocator* out = Poison<Allocator>();
  EXPECT_EQ(QiroK7MCreateAllocator(&counter, &record, &out), 0U);
  EXPECT_EQ(out, Poison<Allocator>());
  EXPECT_EQ(counter.Allocations(), 0U);
  EXPECT_EQ(QiroK7MCreateAllocator(nullptr, nullptr, nullptr), 0U);
}

TEST(InertFunctions, ReleasesTouchNothing) {
  EXPECT_EQ(QiroK7MReleaseAllocator(Poison<Allocator>()), 0U);
  EXPECT_EQ(QiroK7MReleaseIStream(Poison<QiroK7MIStream>()), 0U);
  EXPECT_EQ(QiroK7MReleaseIOStream(Poison<QiroK7MIOStream>()), 0U);
  EXPECT_EQ(QiroK7MReleaseTrack(Poison<QiroK7MTrack>()), 0U);
  EXPECT_EQ(QiroK7MReleaseSampleDescriptor(Poison<QiroK7MSampleDescriptor>()), 0U);
}

TEST(InertFunctions, ReleasesAcceptNull) {
  EXPECT_EQ(QiroK7MReleaseAllocator(nullptr), 0U);
  EXPECT_EQ(QiroK7MReleaseIStream(nullptr), 0U);
  EXPECT_EQ(QiroK7MReleaseIOStream(nullptr), 0U);
  EXPECT_EQ(QiroK7MReleaseTrack(nullptr), 0U);
  EXPECT_EQ(QiroK7MReleaseSampleDescriptor(nullptr), 0U);
  QiroK7MReleaseTrackIterator(nullptr);
  QiroK7MReleaseSampleDescriptorIterator(nullptr);
  QiroK7MCloseReader(nullptr);
}

TEST(InertFunctions, CreateStreamWritesNullAndCallsNothing) {
  MemoryStream memory;
  CountingAllocator counter;
  const QiroK7MAllocatorCallBacks record = counter.Record();
  const QiroK7MIStreamCallBacks reading = memory.Reading();
  QiroK7MIStream* in = Poison<QiroK7MIStream>();
  EXPECT_EQ(QiroK7MCreateIStream(&memory, &reading, &record, &in), 0U);
  EXPECT_EQ(in, nullptr);
  const QiroK7MIOStreamCallBacks writing = memory.ReadingAndWriting();
  QiroK7MIOStream* io = Poison<QiroK7MIOStream>();
  EXPECT_EQ(QiroK7MCreateIOStream(&memory, &writing, &record, &io), 0U);
  EXPECT_EQ(io, nullptr);
  EXPECT_EQ(memory.Count(Call::kAny), 0U);
  EXPECT_EQ(counter.Allocations(), 0U);
}

TEST(InertFunctions, CreateStreamIgnoresAllButItsOutput) {
  QiroK7MIStream* in = Poison<QiroK7MIStream>();
  EXPECT_EQ(QiroK7MCreateIStream(nullptr, nullptr, nullptr, &in), 0U);
  EXPECT_EQ(in, nullptr);
  EXPECT_EQ(QiroK7MCreateIStream(nullptr, nullptr, nullptr, nullptr), 20U);
  EXPECT_EQ(QiroK7MCreateIOStream(nullptr, nullptr, nullptr, nullptr), 20U);
}

TEST(CodeNames, AreExported) {
  EXPECT_STREQ(QiroK7MErrorName(27), "kQiroK7MErrorBoxTruncated");
  EXPECT_STREQ(QiroK7MErrorName(3074), "kQiroK7MWarningBoxPastEndOfStream");
  EXPECT_STREQ(QiroK7MErrorName(2), "unknown code");
  EXPECT_STREQ(QiroK7MErrorText(2), "a code that the library does not define");
  EXPECT_NE(std::string(QiroK7MErrorText(27)), QiroK7MErrorText(28));
}

}  // namespace
}  // namespace k7mtest
