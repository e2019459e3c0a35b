#include "complete_part.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace k7mtest {
namespace {

std::vector<ReadSample> SamplesUpToFailure(const OpenedReader& reader, QiroK7MTrack* track,
                                           QiroK7MError& failure) {
  QiroK7MSampleIterator* samples = nullptr;
  failure = QiroK7MReaderGetMediaSamples(reader.Handle(), &track, 1, &samples);
  return failure == 0 ? Drain(samples, true, &failure) : std::vector<ReadSample>();
}

}  // namespace

size_t EndOfBoxes(const Bytes& file) {
  size_t offset = 0;
  while (offset + 16 <= file.Size() && file.NumberAt(offset + 4) != 0) {
    const uint64_t size = file.NumberAt(offset);
    const uint64_t whole = size == 1 ? file.NumberAt(offset + 8, 8) : size;
    if (whole < 8 || whole > file.Size() - offset) break;
    offset += static_cast<size_t>(whole);
  }
  return offset;
}

CompletePart::CompletePart(const Bytes& file) {
  const OpenedReader reader(file);
  if (reader.Result() != 0) return;  // It has no track yet.
  for (QiroK7MTrack* track : reader.Tracks()) tracks_.push_back(MediaSamples(reader, track));
}

void CompletePart::ExpectReadFrom(const Bytes& file) const {
  if (std::all_of(tracks_.begin(), tracks_.end(),
                  [](const auto& samples) { return samples.empty(); })) {
    return;
  }
  const OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  const std::vector<QiroK7MTrack*> tracks = reader.Tracks();
  ASSERT_GE(tracks.size(), tracks_.size());
  for (size_t track = 0; track < tracks_.size(); ++track) {
    QiroK7MError end = 0;
    const std::vector<ReadSample> found = SamplesUpToFailure(reader, tracks[track], end);
    EXPECT_TRUE(end == 0 || end == kQiroK7MErrorBoxTruncated) << end;
    ASSERT_GE(found.size(), tracks_[track].size()) << "track " << track;
    for (size_t i = 0; i < tracks_[track].size(); ++i) {
      EXPECT_EQ(found[i].dataResult, 0u);
      EXPECT_EQ(found[i].data, tracks_[track][i].data) << "track " << track << ", sample " << i;
      EXPECT_EQ(found[i].info.timeStamp, tracks_[track][i].info.timeStamp);
    }
  }
}

}  // namespace k7mtest
