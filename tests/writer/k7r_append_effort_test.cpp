// What continuing costs, and files that are too long for 32 bits.
#include <gtest/gtest.h>

#include "k7r_recording.h"

namespace k7mtest {
namespace {

struct Cost {
  uint64_t calls;
  uint64_t liveBytes;
};

Cost CostOfOpening(uint64_t fragmentCount) {
  const Recording recording = Record(fragmentCount);
  OpenedK7RWriter writer(recording.file);
  EXPECT_EQ(writer.Result(), 0u);
  return {writer.Stream().Count(Call::kAny), writer.Memory().LiveBytes()};
}

TEST(K7RAppendEffort, EveryFragmentCostsTheSame) {
  const uint64_t none = CostOfOpening(0).calls;
  const uint64_t some = CostOfOpening(20).calls - none;
  const uint64_t many = CostOfOpening(200).calls - none;
  EXPECT_NEAR(static_cast<double>(many), 10 * static_cast<double>(some),
              0.5 * static_cast<double>(some));
  EXPECT_LT(some / 20, 200u);
}

TEST(K7RAppendEffort, TheBoxesOfKeptFragmentsAreNotHeld) {
  // But for the list in which they stood, three places a fragment.
  EXPECT_LE(CostOfOpening(200).liveBytes, CostOfOpening(1).liveBytes + 2 * 200 * 3 * sizeof(void*));
}

TEST(K7RAppendEffort, AWriterHoldsNothingOfWhatItWrote) {
  OpenedK7RWriter writer(Record(1).file);
  const auto tracks = writer.DescribedTracks();
  uint64_t early = 0;
  for (uint64_t number = 1; number <= 200; ++number) {
    AddFragment(writer, tracks, number);
    writer.Flush();
    if (number == 5) early = writer.Memory().LiveBytes();
  }
  EXPECT_LE(writer.Memory().LiveBytes(), early + 200);
}

TEST(K7RAppendEffort, FilesOfMoreThan4GiB) {
  constexpr uint64_t kMdatSize = uint64_t{5} << 30;
  const Recording recording = Record(1);
  const uint64_t mdat = PlaceOf(recording.file, "mdat").offset;
  MemoryStream stream(Bytes(recording.file).Patch(mdat + 8, kMdatSize, 8));
  const uint64_t end = mdat + kMdatSize;
  stream.SetLength(end + 3);  // With some stray bytes.
  const QiroK7MIOStreamCallBacks callBacks = stream.ReadingAndWriting();
  const QiroK7MAllocatorCallBacks memory;
  const int reserved = 0;
  uint64_t last = 0;
  QiroK7RWriter* k7r = nullptr;
  QiroK7MWriter* writer = nullptr;
  ASSERT_EQ(QiroK7RDocOpenForAppend(&callBacks, &reserved, &memory, ~uint64_t{0}, &last, &k7r), 0u);
  ASSERT_EQ(QiroK7RWriterGetK7MWriterRef(k7r, &writer), 0u);
  EXPECT_EQ(last, recording.starts[0]);
  EXPECT_EQ(stream.Length(), end);
  QiroK7MTrackIterator* tracks = nullptr;
  QiroK7MTrack* video = nullptr;
  ASSERT_EQ(QiroK7MWriterGetTracks(writer, &tracks), 0u);
  ASSERT_EQ(QiroK7MTrackIteratorGetNextEntry(tracks, &video), 0u);
  QiroK7MReleaseTrackIterator(tracks);
  ASSERT_EQ(QiroK7MWriterSetSampleDescriptor(writer, video, DescriptorsOf(video)[0]), 0u);
  uint64_t start = 0;
  ASSERT_EQ(QiroK7RWriterStartFragment(k7r, &start), 0u);
  EXPECT_EQ(start, end);
  const NewSample sample{.time = 700, .data = Pattern(9), .flags = kKey};
  const QiroK7MSampleInfo info = sample.Info(video);
  CountedBuffer buffer(sample.data);
  ASSERT_EQ(QiroK7RWriterAddSampleWithAfra(k7r, video, &info, buffer.Record(), 1), 0u);
  ASSERT_EQ(QiroK7RCloseWriter(k7r), 0u);
  QiroK7RDestroyWriter(k7r);
  const Bytes fragment = stream.Content(end, static_cast<size_t>(stream.Length() - end));
  const uint64_t offset = fragment.NumberAt(29, 8);
  EXPECT_EQ(fragment.Slice(static_cast<size_t>(offset), 9), sample.data);
  EXPECT_EQ(NumberIn(fragment, "moof/traf/tfhd", 16, 8), end + offset);
}

}  // namespace
}  // namespace k7mtest
