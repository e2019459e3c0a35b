#include "random_session.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace k7mtest {
namespace {

constexpr uint32_t kMaxDescriptions = 3;
constexpr uint32_t kMaxGaps = 5;

uint32_t PickScale(const SessionOptions& options, std::mt19937& random) {
  return options.timeScales[random() % options.timeScales.size()];
}

}  // namespace

RandomSession::RandomSession(uint32_t seed, const SessionOptions& options)
    : random_(seed),
      options_(options),
      movieScale_(PickScale(options, random_)),
      writer_(movieScale_) {}

void RandomSession::AddTracks() {
  const uint32_t count = 1 + Pick(4);
  for (uint32_t i = 0; i < count; ++i) {
    NewTrack track;
    track.mediaType = options_.mediaTypes[Pick(static_cast<uint32_t>(options_.mediaTypes.size()))];
    track.timeScale = Chance(40) ? movieScale_ : PickScale(options_, random_);
    track.maxSampleCount = options_.maxSteps;
    track.gapCount = kMaxGaps;
    track.descriptorCount = kMaxDescriptions;
    track.maxCodecHeaderLength = 40;
    track.trackFlags = Pick(2);
    tracks_.push_back(writer_.AddTrack(track));
    models_.emplace_back(track, movieScale_);
    descriptors_.emplace_back();
    current_.push_back(0);
    AddDescription(i);
  }
}

void RandomSession::AddBoxes() {
  if (Chance(30)) {
    EXPECT_EQ(writer_.TryAddFullBox("abcd", 1, 7, Pattern(Pick(50))), 0u);
  }
  if (Chance(30)) {
    EXPECT_EQ(writer_.TrySetUlb(Pattern(Pick(50))), 0u);
  }
}

void RandomSession::AddDescription(size_t track) {
  auto& descriptors = descriptors_[track];
  if (descriptors.size() == kMaxDescriptions) return;
  const std::string& mediaType = models_[track].Setup().mediaType;
  const char* coding = mediaType == "soun" ? "mp4a" : "abcd";
  // Every entry of a hint track is read like a 'vorp' one, which has 6 more bytes of fields.
  const uint32_t least = mediaType == "hint" ? 6 : 0;
  const Bytes codecHeader = Pattern(least + Pick(41 - least), ++dataSeed_);
  descriptors.push_back(writer_.Describe(tracks_[track], coding, codecHeader));
  models_[track].AddDescription(
      {Code(coding), codecHeader.Slice(least, codecHeader.Size() - least)});
  current_[track] = static_cast<uint32_t>(descriptors.size());
}

void RandomSession::Run(const std::function<void(RandomSession&)>& atFlush) {
  atFlush_ = atFlush;
  AddTracks();
  if (options_.hasExtraBoxes) AddBoxes();
  const uint32_t count = Pick(options_.maxSteps);
  for (uint32_t i = 0; i < count && !::testing::Test::HasFailure(); ++i) Step();
}

void RandomSession::Step() {
  const uint32_t track = Pick(static_cast<uint32_t>(tracks_.size()));
  const uint32_t what = Pick(100);
  if (what < 3) {
    AddDescription(track);
  } else if (what < 8) {
    const uint32_t index = Pick(static_cast<uint32_t>(descriptors_[track].size()));
    EXPECT_EQ(QiroK7MWriterSetSampleDescriptor(writer_.Handle(), tracks_[track],
                                               descriptors_[track][index]),
              0u);
    current_[track] = index + 1;
  } else if (what < 14 && options_.hasFlushes) {
    writer_.Flush();
    if (atFlush_) atFlush_(*this);
  } else {
    AddToTrack(track);
  }
}

uint64_t RandomSession::NextTime(const ModelTrack& model) {
  if (!model.HasStarted() && (!options_.hasGaps || Chance(60))) return 0;
  // The reader's search passes over samples without duration where an edit begins, deliberately.
  const bool mustGrow = !options_.hasEqualTimes || model.InGap() || model.HasJustBegun() ||
                        (model.SampleCount() != 0 && !Chance(10));
  // All steps together stay below the 32 bits that an edit list has for a duration in movie scale.
  const uint64_t longest =
      (uint64_t{1} << 31) / options_.maxSteps * model.Setup().timeScale / movieScale_;
  const uint32_t step = Chance(50) ? 10 : Pick(Chance(10) ? 1000000 : 100);
  return model.Earliest() +
         (mustGrow || !model.HasStarted() ? std::clamp<uint64_t>(step, 1, longest) : 0);
}

void RandomSession::AddToTrack(size_t track) {
  ModelTrack& model = models_[track];
  if (options_.hasGaps && Chance(15) && model.GapCount() + 1 < kMaxGaps) {
    // A gap that comes first is at 0; a later one is behind the last sample.
    const uint64_t time = model.HasStarted() ? model.Earliest() + 1 + Pick(50) : 0;
    writer_.Add(tracks_[track], {.time = time, .data = {}, .flags = kGap});
    model.AddGap(time);
    return;
  }
  AddSampleTo(track, NextTime(model));
}

void RandomSession::AddSampleTo(size_t track, uint64_t time) {
  ModelTrack& model = models_[track];
  const bool hasTable = model.Setup().trackFlags != 0;
  const uint32_t dependency = hasTable ? Pick(256) << 8 : 0;
  ModelSample sample;
  sample.presented = time;
  const auto offset = static_cast<int32_t>(Chance(60) ? 0 : Pick(2001)) -
                      (options_.hasNegativeOffsets && Chance(50) ? 1000 : 0);
  sample.compositionOffset = static_cast<uint32_t>(offset);
  const bool mustBeKey = options_.startsWithKeys && model.SampleCount() == 0;
  sample.flags = (mustBeKey ? kKey : Pick(2)) | dependency;
  sample.description = current_[track];
  sample.data = Pattern(1 + Pick(40), ++dataSeed_);
  // Given in a multiple of the track's scale, so that converting it loses nothing.
  const uint32_t factor = Chance(70) ? 1 : 1 + Pick(7);
  writer_.Add(tracks_[track],
              {.time = time * factor,
               .data = sample.data,
               .flags = sample.flags,
               .compositionOffset = static_cast<uint32_t>(offset * static_cast<int32_t>(factor)),
               .timeScale = model.Setup().timeScale * factor});
  model.AddSample(std::move(sample));
}

}  // namespace k7mtest
