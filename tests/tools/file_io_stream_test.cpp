#include "file_io_stream.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>

namespace qiro::k7m::tool {
namespace {

class FileIoStreamTest : public testing::Test {
 protected:
  void Write(uint64_t position, const std::vector<uint8_t>& bytes) {
    ASSERT_EQ(callBacks_.seek(&stream_, static_cast<int64_t>(position), kQiroK7MSeekFromStart), 0u);
    uint64_t count = 0;
    ASSERT_EQ(callBacks_.write(&stream_, bytes.data(), bytes.size(), &count), 0u);
    ASSERT_EQ(count, bytes.size());
  }
  std::vector<uint8_t> Read(uint64_t position, size_t size) {
    EXPECT_EQ(callBacks_.seek(&stream_, static_cast<int64_t>(position), kQiroK7MSeekFromStart), 0u);
    std::vector<uint8_t> bytes(size);
    uint64_t count = 0;
    EXPECT_EQ(callBacks_.readSome(&stream_, bytes.data(), size, &count), 0u);
    bytes.resize(count);
    return bytes;
  }
  uint64_t Length() {
    EXPECT_EQ(callBacks_.seek(&stream_, 0, kQiroK7MSeekFromEnd), 0u);
    uint64_t position = 0;
    EXPECT_EQ(callBacks_.tell(&stream_, &position), 0u);
    return position;
  }
  std::vector<uint8_t> FileContent() {
    std::vector<uint8_t> bytes(static_cast<size_t>(lseek(fileno(file_.get()), 0, SEEK_END)));
    EXPECT_EQ(pread(fileno(file_.get()), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
    return bytes;
  }

  std::unique_ptr<FILE, int (*)(FILE*)> file_{std::tmpfile(), std::fclose};
  FileIoStream stream_{fileno(file_.get())};
  QiroK7MIOStreamCallBacks callBacks_ = stream_.CallBacks();
};

TEST_F(FileIoStreamTest, AnExistingFileIsReadAndContinued) {
  std::vector<uint8_t> bytes(200000, 5);
  Write(0, bytes);
  ASSERT_EQ(callBacks_.close(&stream_), 0u);
  FileIoStream again(fileno(file_.get()), bytes.size());
  const QiroK7MIOStreamCallBacks callBacks = again.CallBacks();
  ASSERT_EQ(callBacks.seek(&again, -3, kQiroK7MSeekFromEnd), 0u);
  uint8_t end[8] = {};
  uint64_t count = 0;
  ASSERT_EQ(callBacks.readSome(&again, end, sizeof end, &count), 0u);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(end[2], 5);
  ASSERT_EQ(callBacks.write(&again, "more", 4, &count), 0u);
  ASSERT_EQ(callBacks.close(&again), 0u);
  bytes.insert(bytes.end(), {'m', 'o', 'r', 'e'});
  EXPECT_TRUE(FileContent() == bytes);
}

TEST_F(FileIoStreamTest, RandomUseIsThatOfAnArray) {
  std::mt19937 random(7);
  const auto below = [&random](size_t limit) { return random() % limit; };
  std::vector<uint8_t> model;
  for (int round = 0; round < 3000; ++round) {
    const size_t position = below(12 * 1024 * 1024);
    const size_t size = round % 50 == 0 ? below(400000) : below(300);
    if (round % 3 == 0) {
      const size_t begin = std::min(position, model.size());
      const size_t end = std::min(begin + size, model.size());
      const std::vector<uint8_t> expected(model.begin() + static_cast<ptrdiff_t>(begin),
                                          model.begin() + static_cast<ptrdiff_t>(end));
      ASSERT_TRUE(Read(position, size) == (position < model.size() ? expected : decltype(model)()));
    } else if (round % 500 == 1) {
      model.resize(position);
      ASSERT_EQ(callBacks_.truncate(&stream_, position), 0u);
    } else {
      std::vector<uint8_t> bytes(size);
      for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
      if (size > 0 && model.size() < position + size) model.resize(position + size);
      std::copy(bytes.begin(), bytes.end(), model.begin() + static_cast<ptrdiff_t>(position));
      Write(position, bytes);
    }
    ASSERT_EQ(Length(), model.size());
  }
  ASSERT_EQ(callBacks_.close(&stream_), 0u);
  EXPECT_TRUE(FileContent() == model);
}

TEST_F(FileIoStreamTest, ManyPlacesGrowWithFewSystemCalls) {
  constexpr uint64_t kPlaces = 40;
  constexpr uint64_t kDistance = 1 << 20;
  for (uint64_t step = 0; step < 20000; ++step) {
    for (uint64_t place = 0; place < kPlaces; ++place)
      Write(place * kDistance + step * 8, {1, 2, 3, 4, 5, 6, 7, 8});
  }
  ASSERT_EQ(callBacks_.close(&stream_), 0u);
  // 800,000 writes of 160,000 bytes in each place: three blocks.
  EXPECT_LE(stream_.SystemCallCount(), kPlaces * 3 * 2);
  EXPECT_EQ(Length(), (kPlaces - 1) * kDistance + 160000);
}

TEST_F(FileIoStreamTest, LargePiecesGoStraightThrough) {
  Write(0, std::vector<uint8_t>(32 << 20, 7));
  EXPECT_LE(stream_.SystemCallCount(), 2u);
  EXPECT_EQ(Read((32 << 20) - 3, 10), (std::vector<uint8_t>{7, 7, 7}));
}

TEST_F(FileIoStreamTest, PositionsThatCannotBeAreRefused) {
  EXPECT_EQ(callBacks_.seek(&stream_, -1, kQiroK7MSeekFromStart), FileIoStream::kSystemFailed);
  EXPECT_EQ(stream_.ErrorNumber(), EINVAL);
  ASSERT_EQ(callBacks_.seek(&stream_, INT64_MAX, kQiroK7MSeekFromStart), 0u);
  uint64_t count = 0;
  EXPECT_EQ(callBacks_.write(&stream_, "x", 1, &count), FileIoStream::kSystemFailed);
  EXPECT_EQ(stream_.ErrorNumber(), EFBIG);
}

TEST(FileIoStream, AFailureOfTheSystemIsReportedAtTheLatestAtTheEnd) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/dev/full", "r+"), std::fclose);
  ASSERT_NE(file, nullptr);
  FileIoStream stream(fileno(file.get()));
  const QiroK7MIOStreamCallBacks callBacks = stream.CallBacks();
  uint64_t count = 0;
  EXPECT_EQ(callBacks.write(&stream, "x", 1, &count), 0u);
  EXPECT_EQ(callBacks.close(&stream), FileIoStream::kSystemFailed);
  EXPECT_EQ(stream.ErrorNumber(), ENOSPC);
}

class FileIoStreamInOrder : public FileIoStreamTest {
 protected:
  FileIoStreamInOrder() { callBacks_ = inOrder_.CallBacks(); }

  FileIoStream inOrder_{fileno(file_.get()), 0, FileIoStream::Order::kKept};
};

TEST_F(FileIoStreamInOrder, WhatDoesNotFollowComesBehindWhatWasThereBefore) {
  void* const self = callBacks_.clientData;
  const auto write = [&](int64_t position, size_t size, uint8_t value) {
    const std::vector<uint8_t> bytes(size, value);
    uint64_t count = 0;
    ASSERT_EQ(callBacks_.seek(self, position, kQiroK7MSeekFromStart), 0u);
    ASSERT_EQ(callBacks_.write(self, bytes.data(), size, &count), 0u);
  };
  write(10, 200000, 1);
  write(200010, 10, 2);
  EXPECT_LT(FileContent().size(), 200000u);
  write(0, 10, 3);
  EXPECT_EQ(FileContent().size(), 200020u);
  EXPECT_EQ(FileContent()[9], 0);
  EXPECT_EQ(FileContent()[10], 1);
  EXPECT_EQ(FileContent()[200010], 2);
  write(200020, 1, 4);
  EXPECT_EQ(FileContent().size(), 200020u);
  EXPECT_EQ(FileContent()[9], 3);
  ASSERT_EQ(callBacks_.close(self), 0u);
  EXPECT_EQ(FileContent()[200020], 4);
}

TEST_F(FileIoStreamInOrder, WhatFollowsIsGathered) {
  void* const self = callBacks_.clientData;
  uint64_t count = 0;
  for (int i = 0; i < 100000; ++i) ASSERT_EQ(callBacks_.write(self, "12345678", 8, &count), 0u);
  ASSERT_EQ(callBacks_.close(self), 0u);
  EXPECT_LE(inOrder_.SystemCallCount(), 13u);
}

}  // namespace
}  // namespace qiro::k7m::tool
