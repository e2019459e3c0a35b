#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstring>

#include "support/heap_watch.h"
#include "support/opened_reader.h"
#include "support/opened_writer.h"

namespace k7mtest {
namespace {

constexpr uint32_t kSmallCount = 2000000;
constexpr uint32_t kLargeCount = 540;
constexpr uint32_t kLargeSize = 8u << 20;
constexpr int64_t kMemoryLimit = 200 << 20;

#if defined(__SANITIZE_ADDRESS__)
#define K7M_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define K7M_SANITIZED 1
#endif
#endif
#if defined(K7M_SANITIZED)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

/// Everything that a small sample is, from its number.
struct SmallSample {
  explicit SmallSample(uint32_t number)
      : time(uint64_t{number} * 10 + number % 3),
        offset(number % 2 == 0 ? 0 : 7),
        flags((number % 50 == 0 ? kKey : 0) | (number % 7) << 8) {
    std::memcpy(bytes, &number, sizeof(number));
  }
  uint64_t time;
  uint32_t offset;
  uint32_t flags;
  uint8_t bytes[6] = {};
};

/// The number of a large sample stands at its begin and end; between them are zeros.
void Mark(std::vector<uint8_t>& bytes, uint32_t number) {
  std::memcpy(bytes.data(), &number, sizeof(number));
  std::memcpy(bytes.data() + bytes.size() - sizeof(number), &number, sizeof(number));
}

void WriteAll(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory) {
  const QiroK7MIOStreamCallBacks callBacks = stream.ReadingAndWriting();
  const QiroK7MDocInfo docInfo = DocInfoOf(1000);
  QiroK7MWriter* writer = nullptr;
  ASSERT_EQ(QiroK7MDocCreateNew(&callBacks, &docInfo, &memory, &writer), 0u);
  QiroK7MTrack* tracks[2] = {};
  for (const size_t i : {size_t{0}, size_t{1}}) {
    const NewTrack setup{
        .mediaType = "text", .maxSampleCount = i == 0 ? kSmallCount : kLargeCount, .trackFlags = 1};
    const QiroK7MTrackInfo info = setup.Info();
    const QiroK7MTrackEntriesInfo entries = setup.Entries();
    ASSERT_EQ(QiroK7MWriterAddTrack(writer, &info, &entries, setup.maxSampleCount,
                                    setup.handlerName.data(), &tracks[i]),
              0u);
    const QiroK7MSampleDescInfo description{16, 0, Code("abcd"), Code("text")};
    QiroK7MDataBuffer empty{};
    QiroK7MSampleDescriptor* out = nullptr;
    ASSERT_EQ(QiroK7MWriterAddSampleDescriptor(writer, tracks[i], &description, &empty, &out), 0u);
  }
  std::vector<uint8_t> large(kLargeSize);
  for (uint32_t i = 0; i < kSmallCount; ++i) {
    SmallSample small(i);
    const QiroK7MSampleInfo info{32,           sizeof(small.bytes), small.time, 1000,
                                 small.offset, Code("text"),        small.flags};
    QiroK7MDataBuffer buffer{sizeof(small.bytes), small.bytes, nullptr, nullptr};
    ASSERT_EQ(QiroK7MWriterAddSample(writer, tracks[0], &info, &buffer), 0u);
    if (i % (kSmallCount / kLargeCount) == 0 && i / (kSmallCount / kLargeCount) < kLargeCount) {
      Mark(large, i);
      const QiroK7MSampleInfo largeInfo{32, kLargeSize, i, 1000, 0, Code("text"), kKey};
      QiroK7MDataBuffer largeBuffer{kLargeSize, large.data(), nullptr, nullptr};
      ASSERT_EQ(QiroK7MWriterAddSample(writer, tracks[1], &largeInfo, &largeBuffer), 0u);
    }
  }
  ASSERT_EQ(QiroK7MCloseWriter(writer), 0u);
  QiroK7MDestroyWriter(writer);
}

/// Reads one track; `check(number, info, bytes)` judges each sample. Gives their number.
template <class Check>
uint32_t ReadTrack(QiroK7MReader* reader, QiroK7MTrack* track, Check check) {
  QiroK7MSampleIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader, &track, 1, &iterator), 0u);
  std::vector<uint8_t> bytes;
  uint32_t count = 0;
  for (QiroK7MSample* sample = nullptr;
       QiroK7MSampleIteratorGetNextEntry(iterator, &sample) == 0 && sample != nullptr; ++count) {
    QiroK7MSampleInfo info{};
    bool isRight = QiroK7MSampleGetInfo(sample, &info) == 0;
    bytes.resize(info.sampleSize);
    isRight = isRight && QiroK7MSampleCopyData(sample, bytes.data()) == 0;
    isRight = isRight && check(count, info, bytes);
    QiroK7MReleaseSample(sample);
    if (!isRight) {
      ADD_FAILURE() << "sample " << count << " is wrong";
      break;
    }
  }
  QiroK7MReleaseSampleIterator(iterator);
  return count;
}

void ReadAll(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory) {
  const QiroK7MIStreamCallBacks callBacks = stream.Reading();
  const QiroK7MWarningHandlerCallBacks warnings;
  QiroK7MReader* reader = nullptr;
  ASSERT_EQ(QiroK7MDocOpenForRead(&callBacks, &warnings, &memory, &reader), 0u);
  QiroK7MTrackIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetTracks(reader, &iterator), 0u);
  QiroK7MTrack* tracks[2] = {};
  for (QiroK7MTrack*& track : tracks) {
    ASSERT_EQ(QiroK7MTrackIteratorGetNextEntry(iterator, &track), 0u);
  }
  QiroK7MReleaseTrackIterator(iterator);
  const auto isSmall = [](uint32_t number, const QiroK7MSampleInfo& info,
                          const std::vector<uint8_t>& bytes) {
    const SmallSample expected(number);
    return info.timeStamp == expected.time && info.compositionOffset == expected.offset &&
           info.flags == expected.flags && bytes.size() == sizeof(expected.bytes) &&
           std::memcmp(bytes.data(), expected.bytes, bytes.size()) == 0;
  };
  EXPECT_EQ(ReadTrack(reader, tracks[0], isSmall), kSmallCount);
  std::vector<uint8_t> expected(kLargeSize);
  const auto isLarge = [&expected](uint32_t number, const QiroK7MSampleInfo& info,
                                   const std::vector<uint8_t>& bytes) {
    const uint32_t time = number * (kSmallCount / kLargeCount);
    Mark(expected, time);
    return info.timeStamp == time && info.flags == kKey && bytes == expected;
  };
  EXPECT_EQ(ReadTrack(reader, tracks[1], isLarge), kLargeCount);
  QiroK7MCloseReader(reader);
}

TEST(Large, MoreThan4GiBAndTwoMillionSamplesNeedUnder200MB) {
  ASSERT_TRUE(HeapIsWatched());
  const int64_t heapBefore = CountHeap().liveBytes;
  ResetHeapPeak();
  // Without callbacks all memory of the library comes from the watched operators.
  const QiroK7MAllocatorCallBacks memory;
  MemoryStream stream;
  stream.StopLogging();
  WriteAll(stream, memory);
  ASSERT_GT(stream.Length(), uint64_t{1} << 32);
  const int64_t heapWriting = CountHeap().peakBytes - heapBefore;
  EXPECT_LT(heapWriting, int64_t{kLargeSize} + (8 << 20)) << "beside the buffer of large samples";
  ReadAll(stream, memory);
  const int64_t heapPeak = CountHeap().peakBytes - heapBefore;
  // First of all checks: one that fails keeps its message in memory.
  EXPECT_EQ(CountHeap().liveBytes, heapBefore) << "bytes leaked";
  EXPECT_LT(heapPeak, kMemoryLimit) << "beside the pages of the stream";
  EXPECT_STREQ(stream.Violation(), nullptr);
  RecordProperty("heapWriting", std::to_string(heapWriting));
  RecordProperty("heapPeak", std::to_string(heapPeak));
  rusage usage{};
  ASSERT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
  RecordProperty("resident", std::to_string(usage.ru_maxrss * 1024));
  // With the pages of the stream and all else that the process has.
  if (!kIsSanitized) {
    EXPECT_LT(usage.ru_maxrss * 1024, kMemoryLimit);
  }
}

}  // namespace
}  // namespace k7mtest
