#include "base/client_streams.h"

#include <gtest/gtest.h>

#include <array>

#include "internals/error_of.h"
#include "support/memory_stream.h"

namespace qiro::k7m::impl {
namespace {

using k7mtest::Bytes;
using k7mtest::Call;
using k7mtest::ErrorOf;
using k7mtest::MemoryStream;
using k7mtest::Pattern;

struct Reading {
  explicit Reading(const Bytes& content)
      : memory(content), stream(memory.Reading(), WarningHandler()) {
    stream.Open();
  }
  MemoryStream memory;
  QiroK7MIStream stream;
};

struct ReadingAndWriting {
  explicit ReadingAndWriting(const Bytes& content)
      : memory(content), stream(memory.ReadingAndWriting()) {
    stream.Open();
  }
  MemoryStream memory;
  QiroK7MIOStream stream;
};

TEST(ClientStream, EveryOperationCallsItsCallbackOnce) {
  ReadingAndWriting io(Pattern(10));
  std::array<uint8_t, 4> buffer{};
  io.stream.Acquire();
  io.stream.Read(buffer.data(), 4);
  io.stream.Seek(1, kQiroK7MSeekFromStart);
  io.stream.Tell();
  io.stream.Write(buffer.data(), 4, nullptr);
  io.stream.Truncate(7);
  io.stream.Close();
  io.stream.Release();
  for (const Call call : {Call::kAcquire, Call::kRelease, Call::kOpen, Call::kClose, Call::kRead,
                          Call::kSeek, Call::kTell, Call::kWrite, Call::kTruncate}) {
    EXPECT_EQ(io.memory.Count(call), 1U) << static_cast<int>(call);
  }
  EXPECT_EQ(io.memory.Length(), 7U);
  EXPECT_STREQ(io.memory.Violation(), nullptr);
}

TEST(ClientStream, AStreamToReadFromCanNeitherBeWrittenNorCut) {
  Reading reading(Pattern(10));
  const std::array<uint8_t, 4> bytes{1, 2, 3, 4};
  EXPECT_EQ(reading.stream.Write(bytes.data(), bytes.size(), nullptr), 0U);
  reading.stream.Truncate(3);
  EXPECT_EQ(reading.memory.Content(), Pattern(10));
}

TEST(ClientStream, WhatACallbackReturnsIsThrownUnchanged) {
  const auto check = [](Call call, auto operation) {
    for (const QiroK7MError code : {1U, 5U, 77777U, 0xFFFFFFFFU}) {
      ReadingAndWriting io(Pattern(10));
      io.memory.FailNth(call, 1, code);
      EXPECT_EQ(ErrorOf([&] { operation(io.stream); }), code) << static_cast<int>(call);
      EXPECT_TRUE(io.memory.FaultHit());
    }
  };
  uint8_t byte = 0;
  check(Call::kAcquire, [](auto& stream) { stream.Acquire(); });
  check(Call::kOpen, [](auto& stream) { stream.Open(); });
  check(Call::kClose, [](auto& stream) { stream.Close(); });
  check(Call::kRead, [&](auto& stream) { stream.Read(&byte, 1); });
  check(Call::kRead, [&](auto& stream) { stream.ReadSome(&byte, 1); });
  check(Call::kSeek, [](auto& stream) { stream.Seek(0, kQiroK7MSeekFromStart); });
  check(Call::kTell, [](auto& stream) { stream.Tell(); });
  check(Call::kWrite, [&](auto& stream) { stream.Write(&byte, 1, nullptr); });
  check(Call::kTruncate, [](auto& stream) { stream.Truncate(1); });
}

TEST(ClientStream, ReleaseAndCloseNoThrowReturnTheResult) {
  Reading in(Pattern(4));
  in.memory.FailNth(Call::kRelease, 1, 123);
  EXPECT_EQ(in.stream.Release(), 123U);
  EXPECT_EQ(in.stream.Release(), 0U);
  in.memory.FailNth(Call::kClose, 1, 124);
  EXPECT_EQ(in.stream.CloseNoThrow(), 124U);
}

TEST(ClientStream, SeekOriginsPassUnchanged) {
  Reading in(Pattern(100));
  in.stream.Seek(40, kQiroK7MSeekFromStart);
  EXPECT_EQ(in.stream.Tell(), 40U);
  in.stream.Seek(-15, kQiroK7MSeekFromCurrent);
  EXPECT_EQ(in.stream.Tell(), 25U);
  in.stream.Seek(-1, kQiroK7MSeekFromEnd);
  EXPECT_EQ(in.stream.Tell(), 99U);
}

TEST(ClientStream, AnOffsetThatNoCallbackMayGetIsRefused) {
  Reading in(Pattern(4));
  EXPECT_EQ(ErrorOf([&] { in.stream.SeekTo(uint64_t{1} << 63); }), 27U);
  EXPECT_EQ(in.memory.Count(Call::kSeek), 0U);
  in.stream.SeekTo(INT64_MAX);
  EXPECT_EQ(in.memory.GreatestOffset(), static_cast<uint64_t>(INT64_MAX));
  EXPECT_STREQ(in.memory.Violation(), nullptr);
}

TEST(ClientStream, AShortReadIsError5ForReadAndACountForReadSome) {
  Reading in(Pattern(10));
  in.memory.LimitReads(3);
  std::array<uint8_t, 10> buffer{};
  EXPECT_EQ(in.stream.ReadSome(buffer.data(), 10), 3U);
  EXPECT_EQ(ErrorOf([&] { in.stream.Read(buffer.data(), 4); }), 5U);
  EXPECT_EQ(ErrorOf([&] { in.stream.Read(buffer.data(), 3); }), 0U);
  in.stream.SeekTo(10);
  EXPECT_EQ(in.stream.ReadSome(buffer.data(), 10), 0U);
  EXPECT_EQ(ErrorOf([&] { in.stream.ReadBYTE(); }), 5U);
}

TEST(ClientStream, ACallbackThatClaimsTooMuchIsHeldToWhatWasAsked) {
  MemoryStream memory(Pattern(4));
  QiroK7MIStreamCallBacks record = memory.Reading();
  record.readSome = [](void*, void*, uint64_t, uint64_t* bytesRead) {
    *bytesRead = UINT64_MAX;
    return QiroK7MError{0};
  };
  QiroK7MIStream stream(record, WarningHandler());
  uint8_t byte = 0;
  EXPECT_EQ(stream.ReadSome(&byte, 1), 1U);
}

TEST(ClientStream, AShortWriteIsError47) {
  ReadingAndWriting io(Bytes{});
  const Bytes bytes = Pattern(10);
  EXPECT_EQ(io.stream.Write(bytes.Data(), 10, nullptr), 10U);
  io.memory.LimitWrites(9);
  EXPECT_EQ(ErrorOf([&] { io.stream.Write(bytes.Data(), 10, nullptr); }), 47U);
  EXPECT_EQ(ErrorOf([&] { io.stream.Write(bytes.Data(), 9, nullptr); }), 0U);
}

TEST(ClientStream, AnEmptyWriteDoesNotReachTheCaller) {
  ReadingAndWriting io(Bytes{});
  EXPECT_EQ(io.stream.Write(nullptr, 0, nullptr), 0U);
  EXPECT_EQ(io.memory.Count(Call::kWrite), 0U);
}

TEST(ClientStream, AReadingStreamWritesAndTruncatesNothing) {
  Reading in(Pattern(10));
  const uint64_t calls = in.memory.Count(Call::kAny);
  EXPECT_EQ(in.stream.Write("abc", 3, nullptr), 0U);
  in.stream.Truncate(0);
  EXPECT_EQ(in.memory.Count(Call::kAny), calls);
  EXPECT_EQ(in.memory.Content(), Pattern(10));
}

TEST(ClientStream, LengthLeavesThePositionAndIsRemembered) {
  Reading in(Pattern(100));
  EXPECT_EQ(in.stream.CachedLength(), 0U);
  in.stream.SeekTo(17);
  EXPECT_EQ(in.stream.Length(), 100U);
  EXPECT_EQ(in.stream.Tell(), 17U);
  in.memory.Grow(Pattern(5));
  const uint64_t calls = in.memory.Count(Call::kAny);
  EXPECT_EQ(in.stream.CachedLength(), 100U);
  EXPECT_EQ(in.memory.Count(Call::kAny), calls);
  EXPECT_EQ(in.stream.Length(), 105U);
  EXPECT_EQ(in.stream.CachedLength(), 105U);
}

TEST(ClientStream, CanReadMeasuresAgainOnlyWhenTheStreamSeemsTooShort) {
  Reading in(Pattern(10));
  EXPECT_TRUE(in.stream.CanRead(10));
  const uint64_t seeks = in.memory.Count(Call::kSeek);
  EXPECT_TRUE(in.stream.CanRead(10));
  EXPECT_EQ(in.memory.Count(Call::kSeek), seeks);
  EXPECT_FALSE(in.stream.CanRead(11));
  EXPECT_GT(in.memory.Count(Call::kSeek), seeks);
  in.memory.Grow(Pattern(1));
  EXPECT_TRUE(in.stream.CanRead(11));
  in.stream.SeekTo(4);
  EXPECT_TRUE(in.stream.CanRead(7));
  EXPECT_FALSE(in.stream.CanRead(8));
  EXPECT_FALSE(in.stream.CanRead(UINT64_MAX));
  EXPECT_EQ(in.stream.Tell(), 4U);
}

TEST(ClientStream, NothingCanBeReadBehindTheEnd) {
  Reading in(Pattern(10));
  in.stream.SeekTo(12);
  EXPECT_FALSE(in.stream.CanRead(1));
  EXPECT_FALSE(in.stream.CanRead(UINT64_MAX));
}

TEST(ClientStream, NumbersAreBigEndian) {
  Reading in(Bytes().U8(0x81).U16(0x8283).U32(0x84858687).U64(0x88898A8B8C8D8E8F));
  EXPECT_EQ(in.stream.ReadBYTE(), 0x81);
  EXPECT_EQ(in.stream.ReadWORD(), 0x8283);
  EXPECT_EQ(in.stream.ReadDWORD(), 0x84858687U);
  EXPECT_EQ(in.stream.ReadDDWORD(), 0x88898A8B8C8D8E8FU);
}

TEST(ClientStream, NumbersOfOneToFourBytes) {
  Reading in(Bytes{0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA});
  EXPECT_EQ(in.stream.ReadNByteNumber(1), 0xF1U);
  EXPECT_EQ(in.stream.ReadNByteNumber(2), 0xF2F3U);
  EXPECT_EQ(in.stream.ReadNByteNumber(3), 0xF4F5F6U);
  EXPECT_EQ(in.stream.ReadNByteNumber(4), 0xF7F8F9FAU);
}

TEST(ClientStream, NumbersOfOtherWidthsAreError20) {
  Reading in(Pattern(20));
  for (const uint32_t width : {0U, 5U, 8U, 0xFFFFFFFFU}) {
    EXPECT_EQ(ErrorOf([&] { in.stream.ReadNByteNumber(width); }), 20U) << width;
  }
  EXPECT_EQ(in.stream.Tell(), 0U);
}

TEST(ClientStream, WrittenNumbersAreBigEndian) {
  ReadingAndWriting io(Bytes{});
  io.stream.WriteBYTE(0x81);
  io.stream.WriteWORD(0x8283);
  io.stream.WriteDWORD(0x84858687);
  io.stream.WriteDDWORD(0x88898A8B8C8D8E8F);
  io.stream.WriteBYTES("xyz", 3);
  EXPECT_EQ(io.memory.Content(),
            Bytes().U8(0x81).U16(0x8283).U32(0x84858687).U64(0x88898A8B8C8D8E8F).Text("xyz"));
}

TEST(ClientStream, ReservedSpaceExistsAfterwards) {
  ReadingAndWriting io(Pattern(3));
  io.stream.SeekTo(3);
  io.stream.ReserveSpace(100);
  EXPECT_EQ(io.memory.Length(), 103U);
  EXPECT_EQ(io.stream.Tell(), 103U);
  io.stream.ReserveSpace(1);
  EXPECT_EQ(io.memory.Length(), 104U);
  const uint64_t calls = io.memory.Count(Call::kAny);
  io.stream.ReserveSpace(0);
  EXPECT_EQ(io.memory.Count(Call::kAny), calls);
}

TEST(ClientStream, AMissingRequiredCallbackIsError20) {
  MemoryStream memory;
  const auto build = [&](auto clear) {
    QiroK7MIStreamCallBacks record = memory.Reading();
    clear(record);
    return ErrorOf([&] { QiroK7MIStream(record, WarningHandler()); });
  };
  EXPECT_EQ(build([](auto& record) { record.open = nullptr; }), 20U);
  EXPECT_EQ(build([](auto& record) { record.close = nullptr; }), 20U);
  EXPECT_EQ(build([](auto& record) { record.readSome = nullptr; }), 20U);
  EXPECT_EQ(build([](auto& record) { record.seek = nullptr; }), 20U);
  EXPECT_EQ(build([](auto& record) { record.tell = nullptr; }), 20U);
  EXPECT_EQ(build([](auto&) {}), 0U);
}

TEST(ClientStream, AMissingWriteOrTruncateIsError20ForAWritableStream) {
  MemoryStream memory;
  QiroK7MIOStreamCallBacks record = memory.ReadingAndWriting();
  record.write = nullptr;
  EXPECT_EQ(ErrorOf([&] { QiroK7MIOStream stream(record); }), 20U);
  record = memory.ReadingAndWriting();
  record.truncate = nullptr;
  EXPECT_EQ(ErrorOf([&] { QiroK7MIOStream stream(record); }), 20U);
  record = memory.ReadingAndWriting();
  record.tell = nullptr;
  EXPECT_EQ(ErrorOf([&] { QiroK7MIOStream stream(record); }), 20U);
}

TEST(ClientStream, AcquireAndReleaseMayBeNull) {
  MemoryStream memory;
  QiroK7MIStreamCallBacks record = memory.Reading();
  record.acquire = nullptr;
  record.release = nullptr;
  QiroK7MIStream stream(record, WarningHandler());
  EXPECT_NO_THROW(stream.Acquire());
  EXPECT_EQ(stream.Release(), 0U);
}

TEST(StreamRecord, ADefaultWritableRecordHasItsSizeAndNoCallbacks) {
  const QiroK7MIOStreamCallBacks record;
  EXPECT_EQ(record.size, 88U);
  EXPECT_EQ(record.acquire, nullptr);
  EXPECT_EQ(record.release, nullptr);
  EXPECT_EQ(record.open, nullptr);
  EXPECT_EQ(record.close, nullptr);
  EXPECT_EQ(record.readSome, nullptr);
  EXPECT_EQ(record.seek, nullptr);
  EXPECT_EQ(record.tell, nullptr);
  EXPECT_EQ(record.write, nullptr);
  EXPECT_EQ(record.truncate, nullptr);
}

TEST(StreamRecord, ACopyIsUsedAfterTheRecordIsGone) {
  MemoryStream memory(Pattern(4));
  QiroK7MIStreamCallBacks record = memory.Reading();
  QiroK7MIStream stream(record, WarningHandler());
  record = {};
  stream.Open();
  EXPECT_EQ(stream.Length(), 4U);
}

}  // namespace
}  // namespace qiro::k7m::impl
