#include "session_model.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace k7mtest {

uint64_t ModelTrack::ToMovie(uint64_t time) const {
  if (track_.timeScale == movieScale_) return time;
  return (time * movieScale_ + (track_.timeScale - 1) / 2) / track_.timeScale;
}

uint64_t ModelTrack::DefaultDuration() const {
  return track_.timeScale <= movieScale_
             ? 1
             : (track_.timeScale + uint64_t{movieScale_ - 1} / 2) / movieScale_;
}

void ModelTrack::AddGap(uint64_t time) {
  if (gapStart_) return;
  hasLateFirstGap_ = hasLateFirstGap_ || (!last_ && time > 0);
  last_ = time;
  gapStart_ = time;
  stretches_.back().end = time;
}

void ModelTrack::AddSample(ModelSample sample) {
  if (!last_ && sample.presented > 0) AddGap(0);  // A late start is a gap from 0 on.
  if (gapStart_) {
    removed_ += sample.presented - *gapStart_;
    stretches_.push_back({sample.presented, sample.presented - removed_});
    gapStart_.reset();
    ++gapCount_;
  }
  last_ = sample.presented;
  sample.stored = sample.presented - removed_;
  samples_.push_back(std::move(sample));
}

std::vector<Elst::Entry> ModelTrack::Edits() const {
  std::vector<Elst::Entry> edits;
  uint64_t end = 0;
  for (const Stretch& stretch : stretches_) {
    if (!edits.empty()) edits.push_back({ToMovie(stretch.begin - end), -1});
    end = stretch.end.value_or(last_ ? *last_ + DefaultDuration() : 0);
    edits.push_back({ToMovie(end - stretch.begin), static_cast<int64_t>(stretch.mediaBegin)});
  }
  return edits;
}

bool ModelTrack::IsExact() const {
  constexpr uint64_t kEndOfQuery = 315360000;  // Seconds.
  const auto isHeld = [](const Elst::Entry& edit) {
    return edit.segmentDuration <= UINT32_MAX && edit.mediaTime <= INT32_MAX;
  };
  const std::vector<Elst::Entry> edits = Edits();
  return ((edits.size() == 1 && !InGap()) || movieScale_ % track_.timeScale == 0) &&
         !hasLateFirstGap_ && Earliest() / track_.timeScale < kEndOfQuery &&
         std::all_of(edits.begin(), edits.end(), isHeld);
}

bool ModelTrack::IsPassedOver(size_t sample, const Stretch& stretch) const {
  const uint64_t time = samples_[sample].presented;
  const bool isFollowed = sample + 1 < samples_.size() && samples_[sample + 1].presented == time;
  return time == stretch.end || (time == stretch.begin && isFollowed);
}

std::vector<ModelSample> ModelTrack::Presented() const {
  std::vector<ModelSample> all;
  size_t next = 0;
  for (size_t i = 0; i < stretches_.size(); ++i) {
    if (i != 0 && stretches_[i].begin != 0) {
      ModelSample gap;
      gap.presented = *stretches_[i - 1].end;
      gap.flags = kGap;
      gap.description = 0;
      all.push_back(gap);
    }
    const bool isLast = i + 1 == stretches_.size();
    while (next < samples_.size() &&
           (isLast || samples_[next].presented < stretches_[i + 1].begin)) {
      if (!IsPassedOver(next, stretches_[i])) all.push_back(samples_[next]);
      ++next;
    }
  }
  return all;
}

namespace {

void ExpectSample(const ReadSample& found, const ModelSample& expected, uint64_t time,
                  const ModelTrack& track,
                  const std::vector<QiroK7MSampleDescriptor*>& descriptors) {
  EXPECT_EQ(found.info.timeStamp, time);
  EXPECT_EQ(found.info.timeScale, track.Setup().timeScale);
  EXPECT_EQ(found.info.mediaType, Code(track.Setup().mediaType));
  EXPECT_EQ(found.info.flags, expected.flags);
  EXPECT_EQ(found.info.compositionOffset, expected.compositionOffset);
  EXPECT_EQ(found.data, expected.data);
  EXPECT_EQ(found.dataResult, 0u);
  const size_t index = expected.description;
  EXPECT_EQ(found.descriptor, index == 0 ? nullptr : descriptors.at(index - 1));
}

void ExpectEditsOf(QiroK7MTrack* track, const std::vector<Elst::Entry>& expected) {
  uint32_t count = 0;
  ASSERT_EQ(QiroK7MTrackGetEditCount(track, &count), 0u);
  ASSERT_EQ(count, expected.size());
  for (uint32_t i = 0; i < count; ++i) {
    QiroK7MEdit edit{};
    ASSERT_EQ(QiroK7MTrackGetEdit(track, i, &edit), 0u);
    EXPECT_EQ(edit.segmentDuration, expected[i].segmentDuration) << "edit " << i;
    EXPECT_EQ(edit.mediaTime, expected[i].mediaTime) << "edit " << i;
    EXPECT_EQ(edit.rate, 1u);
  }
}

void ExpectDescriptions(const std::vector<QiroK7MSampleDescriptor*>& found,
                        const std::vector<ModelDescription>& expected) {
  ASSERT_EQ(found.size(), expected.size());
  for (size_t i = 0; i < found.size(); ++i) {
    QiroK7MSampleDescInfo info{};
    ASSERT_EQ(QiroK7MSampleDescriptorGetInfo(found[i], &info), 0u);
    EXPECT_EQ(info.type, expected[i].type);
    ASSERT_EQ(info.codecHeaderDataLength, expected[i].codecHeader.Size());
    Bytes copy = Bytes().Fill(info.codecHeaderDataLength + 1);
    ASSERT_EQ(QiroK7MSampleDescriptorCopyCodecHeaderData(found[i], copy.Data()), 0u);
    EXPECT_EQ(Cut(copy, info.codecHeaderDataLength), expected[i].codecHeader);
  }
}

void ExpectTrackHolds(const OpenedReader& reader, QiroK7MTrack* track, const ModelTrack& model) {
  ExpectEditsOf(track, model.Edits());
  const auto descriptors = DescriptorsOf(track);
  ExpectDescriptions(descriptors, model.Descriptions());
  const auto media = MediaSamples(reader, track);
  ASSERT_EQ(media.size(), model.SampleCount());
  for (size_t i = 0; i < media.size(); ++i) {
    SCOPED_TRACE("sample " + std::to_string(i));
    ExpectSample(media[i], model.Samples()[i], model.Samples()[i].stored, model, descriptors);
  }
  ExpectPresented(reader, track, model);
}

}  // namespace

void ExpectPresented(const OpenedReader& reader, QiroK7MTrack* track, const ModelTrack& model) {
  if (!model.IsExact()) return;
  const auto descriptors = DescriptorsOf(track);
  QiroK7MSampleIterator* iterator = nullptr;
  ASSERT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader.Handle(), &track, 1, &iterator), 0u);
  const auto found = Drain(iterator);
  const auto expected = model.Presented();
  ASSERT_EQ(found.size(), expected.size());
  for (size_t i = 0; i < found.size(); ++i) {
    SCOPED_TRACE("presented sample " + std::to_string(i));
    ExpectSample(found[i], expected[i], expected[i].presented, model, descriptors);
  }
}

void ExpectFileHolds(const Bytes& file, const std::vector<ModelTrack>& tracks) {
  OpenedReader reader(file);
  ASSERT_EQ(reader.Result(), 0u);
  EXPECT_TRUE(reader.Warnings().Seen().empty());
  const auto found = reader.Tracks();
  ASSERT_EQ(found.size(), tracks.size());
  for (size_t i = 0; i < tracks.size(); ++i) {
    SCOPED_TRACE("track " + std::to_string(i + 1));
    ExpectTrackHolds(reader, found[i], tracks[i]);
  }
}

}  // namespace k7mtest
