// A file that is continued by a fragment. What the writer took must be in the file then, and a file
// that it refuses must be as it was.
#include <gtest/gtest.h>

#include "support/box_builder.h"
#include "support/opened_k7r_writer.h"
#include "support/opened_reader.h"
#include "target.h"

namespace k7mfuzz {
namespace {

using k7mtest::NewSample;
using k7mtest::OpenedK7RWriter;
using k7mtest::OpenedReader;

constexpr size_t kMaxSamples = 2000;
constexpr uint32_t kTries = 6;

/// The bytes of the samples that were taken, by track.
using Taken = std::vector<std::vector<Bytes>>;

/// Whether all media samples of a track could be read, within reason; their bytes.
bool ReadTrack(const OpenedReader& reader, QiroK7MTrack* track, std::vector<Bytes>& samples) {
  QiroK7MSampleIterator* iterator = nullptr;
  bool isWhole = QiroK7MReaderGetMediaSamples(reader.Handle(), &track, 1, &iterator) == 0;
  while (isWhole && k7mtest::HasMore(iterator)) {
    QiroK7MSample* sample = nullptr;
    isWhole =
        samples.size() < kMaxSamples && QiroK7MSampleIteratorGetNextEntry(iterator, &sample) == 0;
    if (!isWhole) break;
    QiroK7MSampleInfo info{};
    EXPECT_EQ(QiroK7MSampleGetInfo(sample, &info), 0u);
    const bool isSmall = info.sampleSize < 100;
    samples.push_back(k7mtest::TakeSample(sample, isSmall).data);
  }
  QiroK7MReleaseSampleIterator(iterator);
  return isWhole;
}

void AddSamples(OpenedK7RWriter& writer, Choices& choices, Taken& taken) {
  const auto tracks = writer.DescribedTracks();
  taken.resize(tracks.size());
  if (tracks.empty() || writer.TryStartFragment() != 0) return;
  for (uint32_t i = 0; i < kTries; ++i) {
    const size_t track = choices.Byte() % tracks.size();
    NewSample sample;
    sample.timeScale = 1000;
    sample.time = choices.Number(40) + i;
    sample.data = k7mtest::Pattern(1 + choices.Byte() % 40, i);
    sample.flags = choices.Byte() % 3;
    if (writer.TryAdd(tracks[track], sample, choices.Chance()) != 0) continue;
    if (sample.flags != k7mtest::kGap) taken[track].push_back(sample.data);
  }
}

void ExpectTaken(const Bytes& file, const Taken& taken) {
  OpenedReader reader(file);
  EXPECT_EQ(reader.Result(), 0u) << "a continued file that cannot be read";
  if (reader.Result() != 0) return;
  const auto tracks = reader.Tracks();
  for (size_t i = 0; i < tracks.size() && i < taken.size(); ++i) {
    std::vector<Bytes> found;
    const bool isWhole = ReadTrack(reader, tracks[i], found);
    // A fragment that was kept may end its track; then there is nothing behind it.
    if (!isWhole || reader.Warnings().Count(kQiroK7MWarningUnknownSampleDescription) != 0) continue;
    EXPECT_GE(found.size(), taken[i].size());
    if (found.size() < taken[i].size()) continue;
    const size_t first = found.size() - taken[i].size();
    for (size_t j = 0; j < taken[i].size(); ++j) EXPECT_EQ(found[first + j], taken[i][j]);
  }
}

/// Where the first movie box ends; the end of the file when there is none.
size_t MovieEnd(const Bytes& file) {
  constexpr size_t kHeaderSize = 8;
  for (size_t begin = 0; begin + kHeaderSize <= file.Size();) {
    const uint64_t size = file.NumberAt(begin);
    if (size < kHeaderSize || size > file.Size() - begin) break;
    const size_t end = begin + static_cast<size_t>(size);
    if (file.NumberAt(begin + 4) == k7mtest::Code("moov")) return end;
    begin = end;
  }
  return file.Size();
}

/// Whether the first `size` bytes cannot be read by themselves, but with something behind them: an
/// entry count of 'stts' or 'stsc' deliberately is read without a look at the box's end, and a
/// sample entry may end behind its 'stsd', but not behind the file.
bool NeedsMore(const Bytes& file, size_t size) {
  if (size >= file.Size()) return false;
  const Bytes kept = file.Slice(0, size);
  const QiroK7MError result = OpenedReader(kept).Result();
  if (result != kQiroK7MErrorBoxTruncated) return result == kQiroK7MErrorReadFailed;
  const Bytes rest = k7mtest::Box("free", Bytes().Fill(file.Size() - size));
  return OpenedReader(kept + rest).Result() == 0;
}

/// Whether what was kept, or the movie box, reads bytes of what was cut off behind it.
bool IsCutInside(const Bytes& before, const Bytes& after) {
  return NeedsMore(before, after.Size()) || NeedsMore(before, MovieEnd(before));
}

}  // namespace
}  // namespace k7mfuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace k7mfuzz;
  const Bytes file = BytesOf(data, size);
  Choices choices(data, size);
  const uint64_t keepLimit = choices.Byte() % 4 != 0 ? UINT64_MAX : choices.Number(16);
  const MemoryBound bound(file);
  OpenedK7RWriter writer(file, keepLimit);
  if (writer.Result() != 0) {
    EXPECT_EQ(writer.File(), file);
    writer.Destroy();
    bound.Check(writer.Memory(), writer.Stream().BytesDelivered());
    return 0;
  }
  Taken taken;
  AddSamples(writer, choices, taken);
  // A bad writer closes the stream and does nothing for the file.
  const bool isFinished = writer.IsGood() && QiroK7RCloseWriter(writer.K7R()) == 0;
  writer.Destroy();
  bound.Check(writer.Memory(), writer.Stream().BytesDelivered());
  if (isFinished && !IsCutInside(file, writer.File())) ExpectTaken(writer.File(), taken);
  return 0;
}
