// Whatever a file holds, reading it ends in an answer, gives everything back and stays within
// bounds.
#include <gtest/gtest.h>

#include "media_files.h"
#include "random_movie.h"
#include "support/heap_watch.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

constexpr uint64_t kFixedMemory = 64 << 20;
constexpr uint64_t kMemoryPerByteRead = 48;
constexpr uint32_t kLargestSampleCopied = 1 << 20;

/// Takes every sample; failures are as good as samples here. Returns the number of samples.
uint64_t WalkThrough(QiroK7MSampleIterator* iterator) {
  uint64_t count = 0;
  while (HasMore(iterator)) {
    QiroK7MSample* sample = nullptr;
    if (QiroK7MSampleIteratorGetNextEntry(iterator, &sample) != 0 || sample == nullptr) continue;
    QiroK7MSampleInfo info{};
    EXPECT_EQ(QiroK7MSampleGetInfo(sample, &info), 0u);
    const bool withData = info.sampleSize <= kLargestSampleCopied;
    TakeSample(sample, withData);
    ++count;
  }
  QiroK7MReleaseSampleIterator(iterator);
  return count;
}

void AskEverythingAboutTracks(const OpenedReader& reader) {
  for (QiroK7MTrack* track : reader.Tracks()) {
    const QiroK7MTrackInfo info = InfoOf(track);
    EntriesOf(track);
    Bytes name;
    name.Fill(info.handlerNameLength + 1);
    EXPECT_EQ(QiroK7MReaderCopyHandlerName(track, name.Data()), 0u);
    for (QiroK7MSampleDescriptor* descriptor : DescriptorsOf(track)) {
      QiroK7MSampleDescInfo description{};
      EXPECT_EQ(QiroK7MSampleDescriptorGetInfo(descriptor, &description), 0u);
      Bytes header;
      header.Fill(description.codecHeaderDataLength + 1);
      EXPECT_EQ(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, header.Data()), 0u);
    }
  }
}

/// Opens the file and asks for all there is. Returns the number of samples.
uint64_t AskForEverything(OpenedReader& reader, Dice& dice) {
  if (reader.Result() != 0) return 0;
  AskEverythingAboutTracks(reader);
  uint64_t count = 0;
  QiroK7MSampleIterator* iterator = nullptr;
  if (QiroK7MReaderGetAllSamples(reader.Handle(), &iterator) == 0) count += WalkThrough(iterator);
  if (QiroK7MReaderGetMediaSamples(reader.Handle(), nullptr, 0, &iterator) == 0) {
    count += WalkThrough(iterator);
  }
  for (int i = 0; i < 10; ++i) {
    const uint32_t scale = dice.Pick<uint32_t>({1, 25, 1000, 90000, 0xFFFFFFFF});
    const uint64_t start = dice.Below(scale);
    const uint64_t end = start + dice.Below(scale);
    if (QiroK7MReaderGetSamples(reader.Handle(), scale, start, scale, end, &iterator) == 0) {
      count += WalkThrough(iterator);
    }
  }
  uint32_t length = 0;
  if (QiroK7MReaderGetUlbDataLength(reader.Handle(), &length) == 0) {
    Bytes metadata;
    metadata.Fill(length + size_t{1});
    EXPECT_EQ(QiroK7MReaderCopyUlbData(reader.Handle(), metadata.Data()), 0u);
  }
  return count;
}

/// The most memory that `work(reader)` had at a time, beside what was there before, against the
/// bound.
template <class Work>
void StaysWithinBounds(const std::string& name, const Bytes& file, Work work) {
  ASSERT_TRUE(HeapIsWatched());
  const int64_t before = CountHeap().liveBytes;
  ResetHeapPeak();
  OpenedReader reader(file);
  work(reader);
  const auto heap = static_cast<uint64_t>(CountHeap().peakBytes - before);
  const uint64_t bound = kFixedMemory + kMemoryPerByteRead * reader.Stream().BytesDelivered();
  EXPECT_LE(heap + reader.Memory().PeakBytes(), bound) << name;
  reader.Close();
}

void ReadEvery(const std::vector<std::string>& files, uint64_t leastSamples) {
  Dice dice(1);
  uint64_t samples = 0;
  for (const std::string& path : files) {
    StaysWithinBounds(ShortName(path), ReadFile(path),
                      [&](OpenedReader& reader) { samples += AskForEverything(reader, dice); });
  }
  EXPECT_GE(samples, leastSamples);
}

TEST(AnyFile, OwnFiles_AreReadWithinBounds) { ReadEvery(DataFiles(), 500); }

TEST(AnyFile, ForeignFiles_AreReadWithinBounds) {
  if (!HasForeignFolder()) GTEST_SKIP() << "there is no folder " << ForeignFolder();
  const std::vector<std::string> files = ForeignFiles();
  EXPECT_GT(files.size(), 100u);
  ReadEvery(files, 10000);
}

TEST(AnyFile, CutAnywhere_IsReadWithinBounds) {
  Dice dice(2);
  const Bytes whole = ReadFile(std::string(K7M_TEST_DATA) + "/h264-bframes-aac.mp4");
  for (size_t size = 0; size < whole.Size(); size += 1 + dice.Below(200)) {
    StaysWithinBounds("cut at " + std::to_string(size), Cut(whole, size),
                      [&](OpenedReader& reader) { AskForEverything(reader, dice); });
    if (HasFailure()) return;
  }
}

/// Puts the entry counts of the chunk maps back: what a count promises is allocated there,
/// untouched, by design.
void RestoreChunkMapCounts(Bytes& bytes, const Bytes& original) {
  for (size_t i = 0; i + 16 <= original.Size(); ++i) {
    if (original.NumberAt(i) == Code("stsc")) bytes.Patch(i + 8, original.NumberAt(i + 8));
  }
}

TEST(AnyFile, RandomBytesChanged_IsReadWithinBounds) {
  for (uint32_t seed = 0; seed < 2000; ++seed) {
    Dice dice(seed);
    RandomFile file = MakeRandomFile(dice);
    const Bytes original = file.bytes;
    const auto headSize = static_cast<uint32_t>(file.mdatOffset);
    for (uint32_t i = dice.Between(1, 6); i > 0; --i) {
      file.bytes[dice.Below(headSize)] =
          static_cast<uint8_t>(dice.OneIn(3) ? 0xFF : dice.Below(256));
    }
    RestoreChunkMapCounts(file.bytes, original);
    StaysWithinBounds("seed " + std::to_string(seed), file.bytes, [&](OpenedReader& reader) {
      // Tables of few bytes can describe samples without number, so that only openings are tried to
      // the end; the walks have tests of their own.
      if (reader.Result() == 0) AskEverythingAboutTracks(reader);
    });
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

}  // namespace
}  // namespace k7mtest
