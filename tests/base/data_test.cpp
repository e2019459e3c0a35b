#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "base/big_endian.h"
#include "base/data_buffer.h"
#include "base/data_cursor.h"
#include "support/bytes.h"
#include "support/counted_buffer.h"

namespace qiro::k7m::impl {
namespace {

using k7mtest::Bytes;
using k7mtest::CountedBuffer;

TEST(Data, KnowsWhatIsLeft) {
  Bytes bytes = k7mtest::Pattern(10);
  Data data(bytes.Data(), 10);
  EXPECT_EQ(data.Length(), 10U);
  data.Move(3);
  EXPECT_EQ(data.Length(), 7U);
  EXPECT_EQ(data.Current(), bytes.Data() + 3);
  data.SetLength(2);
  EXPECT_EQ(data.Length(), 2U);
  data.Move(2);
  EXPECT_EQ(data.Length(), 0U);
  EXPECT_EQ(Data().Length(), 0U);
}

TEST(StreamedData, MovesItsOffsetAlong) {
  Bytes bytes = k7mtest::Pattern(10);
  StreamedData data(bytes.Data(), 10, 5000);
  data.Move(4);
  EXPECT_EQ(data.Offset(), 5004U);
  EXPECT_EQ(data.Length(), 6U);
  EXPECT_EQ(data.Current(), bytes.Data() + 4);
}

TEST(Data, NumbersAreBigEndian) {
  Bytes bytes = Bytes().U8(0x81).U16(0x8283).U32(0x84858687).U64(0x88898A8B8C8D8E8F);
  Data data(bytes.Data(), bytes.Size());
  EXPECT_EQ(ReadBYTE(data), 0x81);
  EXPECT_EQ(ReadWORD(data), 0x8283);
  EXPECT_EQ(ReadDWORD(data), 0x84858687U);
  EXPECT_EQ(ReadDDWORD(data), 0x88898A8B8C8D8E8FU);
  EXPECT_EQ(data.Length(), 0U);
}

TEST(Data, AtItsEndReadByteGivesZeroAndStays) {
  Bytes bytes{0x55};
  Data data(bytes.Data(), 1);
  EXPECT_EQ(ReadBYTE(data), 0x55);
  EXPECT_EQ(ReadBYTE(data), 0);
  EXPECT_EQ(data.Current(), bytes.Data() + 1);
}

TEST(Data, WriteDwordStoresBigEndianAndAdvances) {
  Bytes bytes;
  bytes.Fill(8, 0xAA);
  Data data(bytes.Data(), 8);
  WriteDWORD(data, 0x81828384);
  EXPECT_EQ(data.Length(), 4U);
  EXPECT_EQ(bytes, Bytes().U32(0x81828384).Fill(4, 0xAA));
}

TEST(BigEndian, LoadsAndStoresAtOddAddresses) {
  std::array<uint8_t, 9> bytes{};
  StoreBigEndian<uint64_t>(bytes.data() + 1, 0x0102030405060708);
  EXPECT_EQ(bytes[1], 1);
  EXPECT_EQ(bytes[8], 8);
  EXPECT_EQ(LoadBigEndian<uint64_t>(bytes.data() + 1), 0x0102030405060708U);
  EXPECT_EQ(LoadBigEndian<uint32_t>(bytes.data() + 3), 0x03040506U);
  EXPECT_EQ(LoadBigEndian<uint16_t>(bytes.data() + 7), 0x0708);
}

TEST(DataBuffer, ReleasesOnce) {
  CountedBuffer client(k7mtest::Pattern(5));
  DataBuffer copy(*client.Record());
  EXPECT_EQ(copy.Get(), client.Record()->data);
  copy.Release();
  copy.Release();
  EXPECT_EQ(client.Releases(), 1);
  EXPECT_TRUE(client.DataWasRight());
}

TEST(ReleaseDataBuffer, IgnoresNullAndAMissingFunction) {
  ReleaseDataBuffer(nullptr);
  CountedBuffer client(k7mtest::Pattern(5));
  client.Record()->release = nullptr;
  ReleaseDataBuffer(client.Record());
  EXPECT_EQ(client.Releases(), 0);
}

TEST(AutoCleanupDataBuffer, ReleasesAtTheEndOfTheScope) {
  CountedBuffer client(k7mtest::Pattern(5));
  {
    const AutoCleanupDataBuffer cleanup(client.Record());
    EXPECT_EQ(client.Releases(), 0);
  }
  EXPECT_EQ(client.Releases(), 1);
  const AutoCleanupDataBuffer again(nullptr);
}

TEST(AutoCleanupDataBuffer, ReleasesOnceAlsoOnAnException) {
  CountedBuffer client(k7mtest::Pattern(5));
  const auto work = [&] {
    const AutoCleanupDataBuffer cleanup(client.Record());
    throw std::runtime_error("as ordered");
  };
  EXPECT_THROW(work(), std::runtime_error);
  EXPECT_EQ(client.Releases(), 1);
}

TEST(DataBufferRecord, HasTheStatedLayout) {
  EXPECT_EQ(sizeof(QiroK7MDataBuffer), 32U);
  EXPECT_EQ(offsetof(QiroK7MDataBuffer, data), 8U);
  EXPECT_EQ(offsetof(QiroK7MDataBuffer, clientData), 16U);
  EXPECT_EQ(offsetof(QiroK7MDataBuffer, release), 24U);
}

}  // namespace
}  // namespace qiro::k7m::impl
