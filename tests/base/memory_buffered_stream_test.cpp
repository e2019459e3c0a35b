#include "base/memory_buffered_stream.h"

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

/// The operations that a buffered stream leaves to its owner.
class Concrete : public QiroK7MMemoryBufferedStream {
 public:
  using QiroK7MMemoryBufferedStream::QiroK7MMemoryBufferedStream;
  void Acquire() override {}
  QiroK7MError Release() override { return 0; }
  void Open() override {}
  uint64_t ReadSome(void*, uint64_t) override { return 0; }
  void Truncate(uint64_t) override {}
  uint64_t Length() override { return 0; }
  uint64_t CachedLength() const override { return 0; }
  QiroK7MError CloseNoThrow() override { return 0; }
};

struct Buffered {
  explicit Buffered(uint32_t capacity)
      : wrapped(memory.ReadingAndWriting()), stream(&wrapped, 11, 22, capacity) {
    wrapped.Open();
    memory.ClearLog();
  }
  uint32_t Write(const Bytes& bytes) {
    uint32_t flushed = 99;
    EXPECT_EQ(stream.Write(bytes.Data(), bytes.Size(), &flushed), bytes.Size());
    return flushed;
  }
  MemoryStream memory;
  QiroK7MIOStream wrapped;
  Concrete stream;
};

TEST(MemoryBufferedStream, WhatFitsIsGathered) {
  Buffered buffered(8);
  EXPECT_EQ(buffered.Write(Pattern(3)), 0U);
  EXPECT_EQ(buffered.Write(Pattern(4)), 0U);
  EXPECT_EQ(buffered.memory.Count(Call::kAny), 0U);
  EXPECT_EQ(buffered.stream.Tell(), 0U);
}

TEST(MemoryBufferedStream, AnExactlyFullBufferGoesOut) {
  Buffered buffered(8);
  EXPECT_EQ(buffered.Write(Pattern(3, 1)), 0U);
  EXPECT_EQ(buffered.Write(Pattern(5, 2)), 1U);
  EXPECT_EQ(buffered.memory.Content(), Pattern(3, 1) + Pattern(5, 2));
  EXPECT_EQ(buffered.memory.Count(Call::kWrite), 1U);
  EXPECT_EQ(buffered.stream.Tell(), 8U);
}

TEST(MemoryBufferedStream, WhatDoesNotFitIsWrittenDirectlyBehindTheBuffer) {
  Buffered buffered(8);
  buffered.Write(Pattern(3, 1));
  EXPECT_EQ(buffered.Write(Pattern(20, 2)), 1U);
  EXPECT_EQ(buffered.memory.Content(), Pattern(3, 1) + Pattern(20, 2));
  EXPECT_EQ(buffered.memory.Count(Call::kWrite), 2U);
  EXPECT_EQ(buffered.memory.Log().back().size, 15U);
  EXPECT_EQ(buffered.stream.Tell(), 23U);
}

TEST(MemoryBufferedStream, TheFlushedArgumentMayBeNull) {
  Buffered buffered(2);
  EXPECT_EQ(buffered.stream.Write("ab", 2, nullptr), 2U);
  EXPECT_EQ(buffered.memory.Content(), Bytes().Text("ab"));
}

TEST(MemoryBufferedStream, AFlushSeeksToItsPositionFromTheCurrentOneDeliberately) {
  Buffered buffered(4);
  buffered.Write(Pattern(4, 1));  // Goes out at 0; the stored position becomes 4.
  buffered.Write(Pattern(2, 2));
  buffered.memory.ClearLog();
  buffered.stream.Flush();
  // From the wrapped stream's position 4 another 4 bytes onwards.
  ASSERT_GE(buffered.memory.Log().size(), 2U);
  EXPECT_EQ(buffered.memory.Log()[0].call, Call::kSeek);
  EXPECT_EQ(buffered.memory.Log()[0].offset, 8U);
  EXPECT_EQ(buffered.memory.Content(8, 2), Pattern(2, 2));
  EXPECT_EQ(buffered.stream.Tell(), 6U);
}

TEST(MemoryBufferedStream, ReadingFlushesFirstAndMovesOn) {
  Buffered buffered(8);
  buffered.memory.Put(0, Pattern(10));
  buffered.Write(Bytes{7, 8, 9});
  Bytes read;
  read.Fill(4);
  buffered.stream.Read(read.Data(), 4);
  EXPECT_EQ(buffered.memory.Content(), Bytes({7, 8, 9}) + Pattern(10).Slice(3, 7));
  EXPECT_EQ(read, Pattern(10).Slice(3, 4));
  EXPECT_EQ(buffered.stream.Tell(), 7U) << "three written, four read";
}

TEST(MemoryBufferedStream, SeekingFlushesFirst) {
  Buffered buffered(8);
  buffered.Write(Pattern(3));
  buffered.stream.Seek(100, kQiroK7MSeekFromStart);
  EXPECT_EQ(buffered.memory.Content(), Pattern(3));
  EXPECT_EQ(buffered.memory.Position(), 100U);
}

TEST(MemoryBufferedStream, ClosingFlushesFirst) {
  Buffered buffered(8);
  buffered.Write(Pattern(3));
  buffered.stream.Close();
  EXPECT_EQ(buffered.memory.Content(), Pattern(3));
  EXPECT_FALSE(buffered.memory.IsOpen());
}

TEST(MemoryBufferedStream, AFailingFlushPassesTheCodeOn) {
  Buffered buffered(8);
  buffered.Write(Pattern(3));
  buffered.memory.FailNth(Call::kWrite, 1, 555);
  EXPECT_EQ(ErrorOf([&] { buffered.stream.Flush(); }), 555U);
}

TEST(MemoryBufferedStream, KeepsItsConstructionParameters) {
  const Buffered buffered(8);
  EXPECT_EQ(buffered.stream.FirstParameter(), 11U);
  EXPECT_EQ(buffered.stream.SecondParameter(), 22U);
}

}  // namespace
}  // namespace qiro::k7m::impl
