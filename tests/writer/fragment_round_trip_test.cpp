#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "fragment_expectations.h"
#include "session_model.h"

namespace k7mtest {
namespace {

constexpr uint32_t kMaxGaps = 6;

/// A fragmented session made from a seed, with the model of what it adds. Apart from the models of
/// the tracks it knows in which fragment every sample is.
class FragmentedSession {
 public:
  explicit FragmentedSession(uint32_t seed) : random_(seed), writer_(FragmentedInfo(kScale)) {
    const uint32_t count = 1 + Pick(4);
    for (uint32_t i = 0; i < count; ++i) AddTrack();
  }

  Bytes Run() {
    const uint32_t steps = Pick(80);
    for (uint32_t i = 0; i < steps; ++i) Step();
    // Without an open fragment, closing does not tell the file of gaps behind the last one.
    if (fragment_ != 0 && !isOpen_) AddSample(0);
    return writer_.Finish();
  }
  const std::vector<ModelTrack>& Models() const { return models_; }
  uint32_t FragmentCount() const { return fragment_; }
  /// The fragment, from 1, of every sample of a track.
  const std::vector<uint32_t>& FragmentsOf(size_t track) const { return fragmentOf_[track]; }

 private:
  static constexpr uint32_t kScale = 1000;

  uint32_t Pick(uint32_t count) { return static_cast<uint32_t>(random_() % count); }

  void AddTrack() {
    NewTrack track;
    track.mediaType = Pick(2) == 0 ? "vide" : "soun";
    track.timeScale = Pick(2) == 0 ? kScale : 500;  // Whole numbers in movie scale.
    track.gapCount = kMaxGaps;
    track.descriptorCount = 3;
    tracks_.push_back(writer_.AddTrack(track));
    models_.emplace_back(track, kScale);
    descriptors_.emplace_back();
    current_.push_back(0);
    fragmentOf_.emplace_back();
    for (int i = 0; i < 2; ++i) {
      descriptors_.back().push_back(writer_.Describe(tracks_.back(), "abcd"));
      models_.back().AddDescription({Code("abcd"), {}});
    }
    current_.back() = 2;
  }

  void EndFragment() { isOpen_ = false; }

  void Step() {
    const uint32_t track = Pick(static_cast<uint32_t>(tracks_.size()));
    const uint32_t what = Pick(100);
    if (what < 8) {
      writer_.Flush();
      EndFragment();
    } else if (what < 14) {
      Choose(track, 1 + Pick(2));
    } else if (what < 17) {
      EXPECT_EQ(writer_.TryAddFullBox("free", 0, 0, Pattern(Pick(20))), 0u);
      EndFragment();
    } else if (what < 25 && models_[track].GapCount() + 1 < kMaxGaps && !models_[track].InGap()) {
      const uint64_t time =
          models_[track].HasStarted() ? models_[track].Earliest() + 1 + Pick(50) : 0;
      writer_.Add(tracks_[track], {.time = time, .data = {}, .flags = kGap});
      models_[track].AddGap(time);
    } else {
      AddSample(track);
    }
  }

  void Choose(size_t track, uint32_t index) {
    EXPECT_EQ(QiroK7MWriterSetSampleDescriptor(writer_.Handle(), tracks_[track],
                                               descriptors_[track][index - 1]),
              0u);
    const auto& fragments = fragmentOf_[track];
    const bool isInFragment = isOpen_ && !fragments.empty() && fragments.back() == fragment_;
    if (index != current_[track] && isInFragment) EndFragment();
    current_[track] = index;
  }

  void AddSample(size_t track) {
    ModelTrack& model = models_[track];
    ModelSample sample;
    const uint64_t step = Pick(10) == 0 ? 100000 : 1 + Pick(40);
    sample.presented = model.HasStarted() ? model.Earliest() + step : Pick(3) * Pick(100);
    sample.flags = Pick(2);
    sample.compositionOffset = Pick(3) == 0 ? 0u - Pick(100) : Pick(100);
    sample.description = current_[track];
    sample.data = Pattern(1 + Pick(30), ++dataSeed_);
    writer_.Add(tracks_[track], {.time = sample.presented,
                                 .data = sample.data,
                                 .flags = sample.flags,
                                 .compositionOffset = sample.compositionOffset});
    model.AddSample(std::move(sample));
    if (!isOpen_) ++fragment_;
    isOpen_ = true;
    fragmentOf_[track].push_back(fragment_);
  }

  std::mt19937 random_;
  OpenedWriter writer_;
  std::vector<QiroK7MTrack*> tracks_;
  std::vector<ModelTrack> models_;
  std::vector<std::vector<QiroK7MSampleDescriptor*>> descriptors_;
  std::vector<uint32_t> current_;
  std::vector<std::vector<uint32_t>> fragmentOf_;
  uint32_t fragment_ = 0;
  bool isOpen_ = false;
  uint32_t dataSeed_ = 0;
};

/// Every fragment must have its number and exactly the tracks that have samples in it.
void ExpectFragments(const Bytes& file, const FragmentedSession& session) {
  std::map<uint32_t, std::map<uint32_t, uint64_t>> counts;  // Fragment, track id: samples.
  for (size_t track = 0; track < session.Models().size(); ++track) {
    for (const uint32_t fragment : session.FragmentsOf(track)) {
      ++counts[fragment][static_cast<uint32_t>(track + 1)];
    }
  }
  ASSERT_EQ(counts.size(), session.FragmentCount());
  for (const auto& [number, tracks] : counts) {
    const std::string moof = "moof#" + std::to_string(number);
    EXPECT_EQ(NumberIn(file, moof + "/mfhd", 12), number);
    ASSERT_EQ(CodesIn(file, moof).size(), 1 + tracks.size());
    size_t position = 0;
    for (const auto& [trackId, count] : tracks) {
      const std::string traf = moof + "/traf#" + std::to_string(++position);
      EXPECT_EQ(NumberIn(file, traf + "/tfhd", 12), trackId);
      uint64_t found = 0;
      for (size_t run = 1; run < CodesIn(file, traf).size(); ++run) {
        found += NumberIn(file, traf + "/trun#" + std::to_string(run), 12);
      }
      EXPECT_EQ(found, count);
    }
  }
  EXPECT_TRUE(CodesIn(file, "moof#" + std::to_string(counts.size() + 1)).empty());
}

/// The index of every video track names its key samples in order, at their times with gaps, in the
/// fragments that hold them.
void ExpectIndex(const Bytes& file, const FragmentedSession& session) {
  std::vector<Bytes> tables;
  for (size_t track = 0; track < session.Models().size(); ++track) {
    const ModelTrack& model = session.Models()[track];
    if (model.Setup().mediaType != "vide") continue;
    const Bytes tfra = FindBox(file, "mfra/tfra#" + std::to_string(tables.size() + 1));
    tables.push_back(tfra);
    size_t entry = 0;
    for (size_t i = 0; i < model.SampleCount(); ++i) {
      if (model.Samples()[i].flags != kKey) continue;
      const size_t at = 24 + 28 * entry++;
      ASSERT_LE(at + 28, tfra.Size());
      EXPECT_EQ(tfra.NumberAt(at, 8), model.Samples()[i].presented);
      const std::string moof = "moof#" + std::to_string(session.FragmentsOf(track)[i]);
      EXPECT_EQ(tfra.NumberAt(at + 8, 8), PlaceOf(file, moof).offset);
      EXPECT_EQ(tfra.NumberAt(at + 16), track + 1);
    }
    EXPECT_EQ(tfra.NumberAt(12), track + 1);
    EXPECT_EQ(tfra.NumberAt(20), entry);
    EXPECT_EQ(tfra.Size(), 24 + 28 * entry);
  }
  EXPECT_EQ(CodesIn(file, "mfra").size(), tables.size() + 1);
  EXPECT_EQ(NumberIn(file, "mfra/mfro", 12), PlaceOf(file, "mfra").size);
}

TEST(FragmentedRoundTrip, WhatWasAddedIsReadBack) {
  uint64_t fragments = 0;
  for (uint32_t seed = 0; seed < 600 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    FragmentedSession session(seed);
    const Bytes file = session.Run();
    fragments += session.FragmentCount();
    ExpectFragments(file, session);
    ExpectIndex(file, session);
    const bool hasMedia = session.FragmentCount() != 0;
    // Without any media nothing writes the edit lists.
    if (hasMedia) ExpectFileHolds(file, session.Models());
  }
  EXPECT_GT(fragments, 600u * 2);
}

}  // namespace
}  // namespace k7mtest
