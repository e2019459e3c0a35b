// A file for reading: everything that can be asked about it, asked.
#include <gtest/gtest.h>

#include "support/opened_reader.h"
#include "target.h"

namespace k7mfuzz {
namespace {

using k7mtest::OpenedReader;

// A few bytes can stand for four thousand million samples.
constexpr int kMaxSamples = 600;
constexpr uint32_t kMaxCopy = 1 << 16;

void AskSample(QiroK7MSample* sample) {
  QiroK7MSampleInfo info{};
  EXPECT_EQ(QiroK7MSampleGetInfo(sample, &info), 0u);
  const bool isGap = (info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagGap;
  EXPECT_TRUE(!isGap || info.sampleSize == 0);
  QiroK7MTrack* track = nullptr;
  EXPECT_EQ(QiroK7MSampleGetTrack(sample, &track), 0u);
  EXPECT_NE(track, nullptr);
  QiroK7MSampleDescriptor* descriptor = nullptr;
  EXPECT_EQ(QiroK7MSampleGetSampleDescriptor(sample, &descriptor), 0u);
  if (info.sampleSize <= kMaxCopy) {
    std::vector<uint8_t> data(info.sampleSize + size_t{info.sampleSize == 0});
    QiroK7MSampleCopyData(sample, data.data());
  }
  QiroK7MReleaseSample(sample);
}

/// Goes on behind failures: the tracks that did not fail have more samples. The iterator is a
/// reference because the call that sets it may be evaluated after the arguments.
void AskSamples(QiroK7MError result, QiroK7MSampleIterator*& iterator) {
  EXPECT_EQ(result == 0, iterator != nullptr);
  if (result != 0) return;
  uint32_t hasMore = 1;
  for (int i = 0; i < kMaxSamples; ++i) {
    EXPECT_EQ(QiroK7MSampleIteratorHasMoreEntries(iterator, &hasMore), 0u);
    QiroK7MSample* sample = nullptr;
    const QiroK7MError failure = QiroK7MSampleIteratorGetNextEntry(iterator, &sample);
    EXPECT_TRUE(failure == 0 || sample == nullptr);
    EXPECT_TRUE(hasMore != 0 || (failure == 0 && sample == nullptr));
    EXPECT_TRUE(hasMore == 0 || failure != 0 || sample != nullptr);
    if (hasMore == 0) break;
    if (sample != nullptr) AskSample(sample);
  }
  QiroK7MReleaseSampleIterator(iterator);
}

void AskDescriptor(QiroK7MSampleDescriptor* descriptor) {
  QiroK7MSampleDescInfo info{};
  EXPECT_EQ(QiroK7MSampleDescriptorGetInfo(descriptor, &info), 0u);
  std::vector<uint8_t> header(info.codecHeaderDataLength + size_t{1});
  EXPECT_EQ(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, header.data()), 0u);
  QiroK7MVideoSampleDescInfo video{};
  QiroK7MAudioSampleDescInfo audio{};
  QiroK7MVorpSampleDescInfo vorp{};
  if (info.mediaType == k7mtest::Code("vide")) {
    EXPECT_EQ(QiroK7MSampleDescriptorGetVideoInfo(descriptor, &video), 0u);
  } else if (info.mediaType == k7mtest::Code("soun")) {
    EXPECT_EQ(QiroK7MSampleDescriptorGetAudioInfo(descriptor, &audio), 0u);
  } else if (info.mediaType == k7mtest::Code("hint")) {
    EXPECT_EQ(QiroK7MSampleDescriptorGetVorpInfo(descriptor, &vorp), 0u);
  }
}

void AskTrack(QiroK7MTrack* track) {
  const QiroK7MTrackInfo info = k7mtest::InfoOf(track);
  k7mtest::EntriesOf(track);
  std::vector<uint8_t> name(info.handlerNameLength + size_t{1});
  EXPECT_EQ(QiroK7MReaderCopyHandlerName(track, name.data()), 0u);
  uint32_t count = 0;
  EXPECT_EQ(QiroK7MTrackGetEditCount(track, &count), 0u);
  QiroK7MEdit edit{};
  for (uint32_t i = 0; i < count; ++i) EXPECT_EQ(QiroK7MTrackGetEdit(track, i, &edit), 0u);
  EXPECT_EQ(QiroK7MTrackGetEdit(track, count, &edit), kQiroK7MErrorInvalidArgument + 0u);
  QiroK7MSampleDescriptorIterator* iterator = nullptr;
  if (QiroK7MTrackGetSampleDescriptors(track, &iterator) == 0) {
    QiroK7MReleaseSampleDescriptorIterator(iterator);
    for (auto* descriptor : k7mtest::DescriptorsOf(track)) AskDescriptor(descriptor);
  }
}

void AskMetadata(QiroK7MReader* reader) {
  uint32_t length = 0;
  if (QiroK7MReaderGetUlbDataLength(reader, &length) != 0) return;
  std::vector<uint8_t> packet(length + size_t{1});
  EXPECT_EQ(QiroK7MReaderCopyUlbData(reader, packet.data()), 0u);
}

void AskRange(QiroK7MReader* reader, const std::vector<QiroK7MTrack*>& tracks, Choices& choices) {
  QiroK7MSampleIterator* iterator = nullptr;
  const uint64_t start = choices.Number();
  const uint64_t end = choices.Chance() ? start + choices.Number(20) : choices.Number();
  const auto startScale = static_cast<uint32_t>(choices.Number(32));
  const uint32_t endScale = choices.Chance() ? startScale : 1 + choices.Byte();
  if (!tracks.empty() && choices.Chance()) {
    QiroK7MTrack* track = tracks[choices.Byte() % tracks.size()];
    AskSamples(QiroK7MReaderGetSamplesByTracks(reader, startScale, start, endScale, end, &track, 1,
                                               &iterator),
               iterator);
  } else {
    AskSamples(QiroK7MReaderGetSamples(reader, startScale, start, endScale, end, &iterator),
               iterator);
  }
}

void AskAll(OpenedReader& reader, Choices& choices) {
  if (reader.Result() != 0) return;
  QiroK7MReader* handle = reader.Handle();
  QiroK7MDocInfo info{};
  QiroK7MReaderGetDocInfo(handle, &info);
  if (choices.Chance()) AskMetadata(handle);
  const auto tracks = reader.Tracks();
  for (QiroK7MTrack* track : tracks) AskTrack(track);
  AskRange(handle, tracks, choices);
  QiroK7MSampleIterator* iterator = nullptr;
  QiroK7MError result = QiroK7MReaderGetAllSamples(handle, &iterator);
  AskSamples(result, iterator);
  iterator = nullptr;
  result = QiroK7MReaderGetMediaSamples(handle, nullptr, 0, &iterator);
  AskSamples(result, iterator);
  AskRange(handle, tracks, choices);
  uint32_t count = 0;
  for (QiroK7MTrack* track : tracks) QiroK7MTrackGetSampleCount(track, &count);
  AskMetadata(handle);
}

void AskAndJudge(OpenedReader& reader, const MemoryBound& bound, Choices choices) {
  AskAll(reader, choices);
  reader.Close();
  bound.Check(reader.Memory(), reader.Stream().BytesDelivered());
}

}  // namespace
}  // namespace k7mfuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace k7mfuzz;
  const Bytes file = BytesOf(data, size);
  Choices choices(data, size);
  const uint32_t flags = choices.Byte();
  {
    const MemoryBound bound(file);
    OpenedReader reader(file);
    AskAndJudge(reader, bound, choices);
  }
  const MemoryBound bound(file);
  OpenedReader reader(file, k7mtest::ReadFlags{flags});
  AskAndJudge(reader, bound, choices);
  return 0;
}
