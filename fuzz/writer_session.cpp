#include "writer_session.h"

#include <gtest/gtest.h>

#include <array>

#include "support/box_builder.h"
#include "support/opened_reader.h"

namespace k7mfuzz {
namespace {

using k7mtest::Call;
using k7mtest::Code;
using k7mtest::ModelSample;
using k7mtest::NewSample;
using k7mtest::NewTrack;
using k7mtest::OpenedReader;
using k7mtest::OpenedWriter;
using k7mtest::Pattern;

constexpr std::array<uint32_t, 7> kScales = {1000, 1, 25, 600, 1001, 48000, 90000};
constexpr std::array<const char*, 5> kMediaTypes = {"vide", "soun", "text", "hint", "meta"};
constexpr uint32_t kHintScale = 1000;
constexpr size_t kMaxTracks = 5;
constexpr uint32_t kHintFieldsSize = 6;  // Every entry of a hint track is read like a 'vorp' one.

QiroK7MDocInfo InfoFor(DocumentKind kind, uint32_t movieScale) {
  QiroK7MDocInfo info = k7mtest::DocInfoOf(movieScale);
  info.isFragmented = kind == DocumentKind::kPlain ? 0 : 1;
  return info;
}

bool IsKey(uint32_t flags) { return (flags & kQiroK7MSampleFlagKindMask) == k7mtest::kKey; }

}  // namespace

WriterSession::WriterSession(DocumentKind kind, Choices& choices)
    : kind_(kind),
      choices_(choices),
      movieScale_(kScales[choices.Byte() % kScales.size()]),
      plain_(kind == DocumentKind::kK7R
                 ? nullptr
                 : std::make_unique<OpenedWriter>(InfoFor(kind, movieScale_))),
      k7r_(kind == DocumentKind::kK7R
               ? std::make_unique<k7mtest::OpenedK7RWriter>(InfoFor(kind, movieScale_))
               : nullptr),
      writer_(k7r_ != nullptr ? *k7r_ : *plain_) {}

uint64_t WriterSession::OriginOf(const TrackState& state) const {
  const uint32_t scale = state.model.Setup().timeScale;
  const uint64_t origin = origin_.value_or(0);
  return scale == kHintScale ? origin : (origin * scale + (kHintScale - 1) / 2) / kHintScale;
}

// Calls
// ------------------------------------------------------------------------------------------------

void WriterSession::OrderFault() {
  static constexpr std::array<QiroK7MError, 8> kCodes = {5, 18, 20, 47, 99, 1280, 1536, 16};
  static constexpr std::array<Call, 5> kCalls = {Call::kWrite, Call::kSeek, Call::kTruncate,
                                                 Call::kTell, Call::kAny};
  faultIsOrdered_ = true;
  const uint64_t n = 1 + choices_.Number(7);
  if (choices_.Byte() % 8 == 0) {
    writer_.Memory().FailNth(n);
  } else if (choices_.Byte() % 8 == 0) {
    writer_.Stream().ShortenNthWrite(n);
  } else {
    const Call call = kCalls[Pick(kCalls.size())];
    const QiroK7MError code = kCodes[Pick(kCodes.size())];
    writer_.Stream().FailNth(call, n, code, choices_.Byte() % 8 == 0);
  }
}

NewTrack WriterSession::AnyNewTrack() {
  NewTrack track;
  track.mediaType = kMediaTypes[Pick(kMediaTypes.size())];
  track.timeScale = kScales[Pick(kScales.size())];
  track.maxSampleCount = choices_.Byte() % 64;
  track.gapCount = choices_.Byte() % 8;
  track.descriptorCount = 1 + choices_.Byte() % 3;
  track.maxCodecHeaderLength = choices_.Byte() % 48;
  track.trackFlags = choices_.Byte() % 2;
  return track;
}

void WriterSession::AddTrack() {
  if (tracks_.size() >= kMaxTracks) return;
  NewTrack track = AnyNewTrack();
  if (IsK7R() && track.mediaType == "hint") track.mediaType = "vide";
  QiroK7MTrack* added = nullptr;
  if (writer_.TryAddTrack(track, &added) != 0) return;
  tracks_.push_back({added, k7mtest::ModelTrack(track, movieScale_)});
  if (choices_.Chance()) return;
  writer_.TryDescribe(added, "abcd", Pattern(kHintFieldsSize));
  tracks_.back().current = static_cast<uint32_t>(k7mtest::DescriptorsOf(added).size());
}

void WriterSession::AddHintTrack() {
  NewTrack track = AnyNewTrack();
  track.mediaType = "hint";
  track.timeScale = kHintScale;
  track.flags = 0;
  std::vector<QiroK7MTrack*> served;
  for (const TrackState& state : tracks_) {
    if (choices_.Byte() % 4 != 0) served.push_back(state.track);
  }
  QiroK7MTrack* added = nullptr;
  if (k7r_->TryAddHintTrack(track, served, &added) != 0) return;
  hintTrack_ = tracks_.size();
  tracks_.push_back({added, k7mtest::ModelTrack(track, movieScale_)});
  const auto origin = static_cast<uint32_t>(choices_.Number(12));
  if (k7r_->TryAddVorp(added, k7mtest::VorpExtension(origin)) != 0) return;
  origin_ = origin;
  tracks_.back().current = 1;
}

void WriterSession::Describe() {
  if (tracks_.empty()) return;
  TrackState& state = AnyTrack();
  if (hintTrack_ < tracks_.size() && &state == &tracks_[hintTrack_]) return;
  const size_t before = k7mtest::DescriptorsOf(state.track).size();
  writer_.TryDescribe(state.track, choices_.Chance() ? "abcd" : "mp4a",
                      Pattern(kHintFieldsSize + choices_.Byte() % 40, ++dataSeed_));
  // One that could not be written is there all the same.
  const size_t count = k7mtest::DescriptorsOf(state.track).size();
  if (count != before) state.current = static_cast<uint32_t>(count);
}

void WriterSession::ChooseDescription() {
  if (tracks_.empty()) return;
  TrackState& state = AnyTrack();
  const auto descriptors = k7mtest::DescriptorsOf(state.track);
  if (descriptors.empty()) return;
  const size_t index = Pick(descriptors.size());
  if (QiroK7MWriterSetSampleDescriptor(writer_.Handle(), state.track, descriptors[index]) == 0) {
    state.current = static_cast<uint32_t>(index + 1);
  }
}

void WriterSession::AddBox() {
  const Bytes payload = Pattern(choices_.Byte() % 40, ++dataSeed_);
  if (choices_.Chance()) {
    writer_.TrySetUlb(payload);
  } else {
    writer_.TryAddFullBox("free", choices_.Byte(), choices_.Byte(), payload);
  }
}

NewSample WriterSession::NextSample(const TrackState& state, ModelSample& taken) {
  const k7mtest::ModelTrack& model = state.model;
  static constexpr std::array<unsigned, 4> kStepBits = {4, 8, 8, 34};
  const uint64_t step = choices_.Number(kStepBits[Pick(kStepBits.size())]);
  // A step back now and then; the first sample may come late.
  taken.presented = model.Earliest() + step - (choices_.Byte() % 16 == 0 ? choices_.Byte() : 0);
  if (taken.presented > uint64_t{1} << 42) taken.presented = model.Earliest();
  const auto offset = static_cast<int32_t>(choices_.Byte()) - 128;
  taken.compositionOffset = static_cast<uint32_t>(offset);
  taken.flags = choices_.Byte() % 8 == 0 ? k7mtest::kGap : choices_.Byte() % 2;
  if (model.Setup().trackFlags != 0 && kind_ == DocumentKind::kPlain) {
    taken.flags |= uint32_t{choices_.Byte()} << kQiroK7MSampleDependencyShift;
  }
  taken.description = state.current;
  taken.data = Pattern(choices_.Byte() % 40, ++dataSeed_);
  // Given in a multiple of the track's scale, so that converting it loses nothing.
  const uint32_t factor = 1 + choices_.Byte() % 4;
  return {.time = (taken.presented + OriginOf(state)) * factor,
          .data = taken.data,
          .flags = taken.flags,
          .compositionOffset = static_cast<uint32_t>(offset * static_cast<int32_t>(factor)),
          .timeScale = model.Setup().timeScale * factor};
}

QiroK7MError WriterSession::TryAdd(QiroK7MTrack* track, const NewSample& sample) {
  if (k7r_ == nullptr) return plain_->TryAdd(track, sample);
  return k7r_->TryAdd(track, sample, choices_.Chance());
}

void WriterSession::AddSample() {
  if (tracks_.empty()) return;
  TrackState& state = AnyTrack();
  ModelSample taken;
  const NewSample sample = NextSample(state, taken);
  if (TryAdd(state.track, sample) != 0) return;
  if ((taken.flags & kQiroK7MSampleFlagKindMask) == k7mtest::kGap) {
    state.model.AddGap(taken.presented);
  } else {
    state.model.AddSample(std::move(taken));
  }
}

void WriterSession::AddHintSample() {
  if (hintTrack_ >= tracks_.size()) return;
  TrackState& hint = tracks_[hintTrack_];
  TrackState& media = AnyTrack();
  ModelSample taken;
  NewSample sample = NextSample(hint, taken);
  if ((taken.flags & kQiroK7MSampleFlagKindMask) == k7mtest::kGap || &media == &hint) return;
  // The media sample's time is the hint sample's; whole numbers are needed for the model.
  if (media.model.Setup().timeScale != kHintScale) return;
  const uint32_t offset = choices_.Byte() % 16;
  const uint32_t size = choices_.Byte() % 32;
  const uint64_t before = hint.model.SampleCount();
  const QiroK7MError result =
      k7r_->TryAddHint(hint.track, media.track, sample, {offset, size}, choices_.Chance());
  if (result != 0) {
    // Whether the hint sample was taken is not told: nothing can be said about its track any more.
    faultIsOrdered_ = true;
    return;
  }
  EXPECT_LE(uint64_t{offset} + size, taken.data.Size());
  EXPECT_EQ(hint.model.SampleCount(), before);
  ModelSample inside = taken;
  inside.description = media.current;
  inside.data = taken.data.Slice(offset, size);
  hint.model.AddSample(std::move(taken));
  media.model.AddSample(std::move(inside));
}

void WriterSession::Flush() { QiroK7MWriterFlush(writer_.Handle()); }

void WriterSession::StartFragment() { k7r_->TryStartFragment(); }

void WriterSession::AddBootstrap() { k7r_->TryAddAbst(Pattern(choices_.Byte() % 20)); }

void WriterSession::Run() {
  using Step = void (WriterSession::*)();
  static constexpr std::array<Step, 16> kSteps = {&WriterSession::AddTrack,
                                                  &WriterSession::Describe,
                                                  &WriterSession::ChooseDescription,
                                                  &WriterSession::AddBox,
                                                  &WriterSession::Flush,
                                                  &WriterSession::OrderFault,
                                                  &WriterSession::AddSample,
                                                  &WriterSession::AddSample,
                                                  &WriterSession::AddSample,
                                                  &WriterSession::AddSample,
                                                  &WriterSession::AddSample,
                                                  &WriterSession::AddSample,
                                                  &WriterSession::AddHintTrack,
                                                  &WriterSession::StartFragment,
                                                  &WriterSession::AddHintSample,
                                                  &WriterSession::AddBootstrap};
  constexpr size_t kK7RSteps = 4;  // The last ones.
  while (!choices_.IsEmpty() && writer_.IsGood()) {
    const size_t count = IsK7R() ? kSteps.size() : kSteps.size() - kK7RSteps;
    (this->*kSteps[Pick(count)])();
  }
}

// Judging
// ------------------------------------------------------------------------------------------------

void WriterSession::ExpectHeld(const OpenedReader& reader, QiroK7MTrack* track,
                               const TrackState& state) const {
  const auto descriptors = k7mtest::DescriptorsOf(track);
  const auto found = k7mtest::MediaSamples(reader, track);
  const auto& taken = state.model.Samples();
  EXPECT_EQ(found.size(), taken.size());
  for (size_t i = 0; i < found.size() && i < taken.size(); ++i) {
    const QiroK7MSampleInfo& info = found[i].info;
    EXPECT_EQ(found[i].data, taken[i].data);
    EXPECT_EQ(found[i].dataResult, 0u);
    EXPECT_EQ(IsKey(info.flags), IsKey(taken[i].flags));
    EXPECT_EQ(info.compositionOffset, taken[i].compositionOffset);
    EXPECT_EQ(found[i].descriptor, descriptors.at(taken[i].description - 1));
    // A sample that failed may have ended a gap.
    if (!faultIsOrdered_) {
      EXPECT_EQ(info.timeStamp, taken[i].stored - taken[0].stored);
    }
    if (kind_ == DocumentKind::kPlain) {
      EXPECT_EQ(info.flags & kQiroK7MSampleDependencyMask,
                taken[i].flags & kQiroK7MSampleDependencyMask);
    }
  }
  if (kind_ == DocumentKind::kPlain && !faultIsOrdered_)
    k7mtest::ExpectPresented(reader, track, state.model);
}

void WriterSession::FinishAndJudge() {
  const bool isFinished =
      writer_.Result() == 0 && writer_.IsGood() && QiroK7MCloseWriter(writer_.Handle()) == 0;
  writer_.Destroy();
  if (!isFinished || tracks_.empty()) return;  // A movie without tracks is none for the reader.
  OpenedReader reader(writer_.File());
  EXPECT_EQ(reader.Result(), 0u);
  EXPECT_EQ(reader.Warnings().Seen(), std::vector<QiroK7MError>());
  const auto tracks = reader.Tracks();
  for (QiroK7MTrack* track : tracks) k7mtest::MediaSamples(reader, track);
  if (faultIsOrdered_ && kind_ != DocumentKind::kPlain) return;
  EXPECT_EQ(tracks.size(), tracks_.size());
  for (size_t i = 0; i < tracks.size(); ++i) ExpectHeld(reader, tracks[i], tracks_[i]);
}

}  // namespace k7mfuzz
