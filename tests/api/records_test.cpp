// The records that the library fills: their own bytes and no others, whatever they held before.
#include <gtest/gtest.h>

#include <cstring>

#include "reading_session.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr uint8_t kCanary = 0xA5;

/// A record in front of bytes that do not belong to it, everything filled with one value.
template <class Record>
struct Guarded {
  explicit Guarded(uint8_t fill) {
    std::memset(static_cast<void*>(&record), fill, sizeof(record));
    std::memset(behind, kCanary, sizeof(behind));
  }
  bool IsIntact() const {
    for (const uint8_t byte : behind) {
      if (byte != kCanary) return false;
    }
    return true;
  }

  Record record;
  uint8_t behind[256];
};

/// Lets `fill` write into a record that was full of zeros and into one that was full of other
/// things; both must be the same, and know their size.
template <class Record, class Fill>
void ExpectFilled(Fill fill) {
  Guarded<Record> zeros(0);
  Guarded<Record> others(0xEE);
  EXPECT_EQ(fill(&zeros.record), 0u);
  EXPECT_EQ(fill(&others.record), 0u);
  EXPECT_TRUE(zeros.IsIntact());
  EXPECT_TRUE(others.IsIntact());
  EXPECT_EQ(zeros.record.size, sizeof(Record));
  EXPECT_EQ(others.record.size, sizeof(Record));
  EXPECT_EQ(std::memcmp(&zeros.record, &others.record, sizeof(Record)), 0);
}

/// A movie with a track of each kind that has a record of its own.
Bytes EveryKind() {
  Movie movie;
  movie.tracks.push_back({.samples = SomeSamples(2), .descriptions = {VideoEntry()}});
  movie.tracks.push_back(
      {.handler = "soun", .samples = SomeSamples(2), .descriptions = {AudioEntry()}});
  movie.tracks.push_back(
      {.handler = "hint", .samples = SomeSamples(2), .descriptions = {VorpEntry()}});
  movie.tracks[0].edits = {{.segmentDuration = 5, .mediaTime = -1}, {.segmentDuration = 10}};
  return BuildMovie(movie).bytes;
}

class Records : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(reader_.Result(), 0u); }
  QiroK7MSampleDescriptor* DescriptorOf(size_t track) {
    return DescriptorsOf(reader_.TrackAt(track)).at(0);
  }

  OpenedReader reader_{EveryKind()};
};

TEST_F(Records, OfDocumentsAndTracksAreFilledToTheirEnd) {
  ExpectFilled<QiroK7MDocInfo>(
      [&](auto* info) { return QiroK7MReaderGetDocInfo(reader_.Handle(), info); });
  for (QiroK7MTrack* track : reader_.Tracks()) {
    ExpectFilled<QiroK7MTrackInfo>([&](auto* info) { return QiroK7MTrackGetInfo(track, info); });
    ExpectFilled<QiroK7MTrackEntriesInfo>(
        [&](auto* info) { return QiroK7MTrackGetEntriesInfo(track, info); });
  }
  for (const uint32_t index : {0u, 1u}) {
    ExpectFilled<QiroK7MEdit>(
        [&](auto* edit) { return QiroK7MTrackGetEdit(reader_.TrackAt(0), index, edit); });
  }
}

TEST_F(Records, OfDescriptorsAreFilledToTheirEnd) {
  for (const size_t track : {0u, 1u, 2u}) {
    ExpectFilled<QiroK7MSampleDescInfo>(
        [&](auto* info) { return QiroK7MSampleDescriptorGetInfo(DescriptorOf(track), info); });
  }
  ExpectFilled<QiroK7MVideoSampleDescInfo>(
      [&](auto* info) { return QiroK7MSampleDescriptorGetVideoInfo(DescriptorOf(0), info); });
  ExpectFilled<QiroK7MAudioSampleDescInfo>(
      [&](auto* info) { return QiroK7MSampleDescriptorGetAudioInfo(DescriptorOf(1), info); });
  ExpectFilled<QiroK7MVorpSampleDescInfo>(
      [&](auto* info) { return QiroK7MSampleDescriptorGetVorpInfo(DescriptorOf(2), info); });
}

TEST_F(Records, OfSamplesAreFilledToTheirEnd) {
  QiroK7MSampleIterator* samples = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamples(reader_.Handle(), &samples), 0u);
  for (int i = 0; i < 6; ++i) {  // A gap is among them.
    QiroK7MSample* sample = nullptr;
    ASSERT_EQ(QiroK7MSampleIteratorGetNextEntry(samples, &sample), 0u);
    ASSERT_NE(sample, nullptr);
    ExpectFilled<QiroK7MSampleInfo>([&](auto* info) { return QiroK7MSampleGetInfo(sample, info); });
    QiroK7MReleaseSample(sample);
  }
  QiroK7MReleaseSampleIterator(samples);
}

/// Lets `copy` write `size` bytes; none behind them may change.
template <class Copy>
void ExpectCopied(size_t size, Copy copy) {
  std::vector<uint8_t> buffer(size + 256, kCanary);
  EXPECT_EQ(copy(buffer.data()), 0u);
  for (size_t i = size; i < buffer.size(); ++i) ASSERT_EQ(buffer[i], kCanary) << i;
}

TEST(Buffers, ReceiveAsManyBytesAsWereTold) {
  OpenedReader reader(SessionFile());
  ASSERT_EQ(reader.Result(), 0u);
  ExpectCopied(MetadataPacket().Size(),
               [&](void* to) { return QiroK7MReaderCopyUlbData(reader.Handle(), to); });
  QiroK7MTrack* const track = reader.TrackAt(0);
  ExpectCopied(InfoOf(track).handlerNameLength,
               [&](void* to) { return QiroK7MReaderCopyHandlerName(track, to); });
  QiroK7MSampleDescriptor* const descriptor = DescriptorsOf(track).at(0);
  QiroK7MSampleDescInfo info;
  ASSERT_EQ(QiroK7MSampleDescriptorGetInfo(descriptor, &info), 0u);
  ExpectCopied(info.codecHeaderDataLength, [&](void* to) {
    return QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, to);
  });
  QiroK7MSampleIterator* samples = nullptr;
  ASSERT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &samples), 0u);
  while (HasMore(samples)) {
    QiroK7MSample* sample = nullptr;
    ASSERT_EQ(QiroK7MSampleIteratorGetNextEntry(samples, &sample), 0u);
    QiroK7MSampleInfo record;
    ASSERT_EQ(QiroK7MSampleGetInfo(sample, &record), 0u);
    ExpectCopied(record.sampleSize, [&](void* to) { return QiroK7MSampleCopyData(sample, to); });
    QiroK7MReleaseSample(sample);
  }
  QiroK7MReleaseSampleIterator(samples);
}

}  // namespace
}  // namespace k7mtest
