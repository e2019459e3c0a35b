// Random K7R sessions, closed, cut and continued now and then, read back whole: bytes and times.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "k7r_recording.h"

namespace k7mtest {
namespace {

struct ExpectedSample {
  uint64_t time;  // On the presentation timeline.
  Bytes data;
  bool operator==(const ExpectedSample&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const ExpectedSample& sample) {
    return out << sample.time << ": " << sample.data;
  }
};
using Samples = std::vector<ExpectedSample>;

/// Tracks video, audio, hint; all scales are equal, so that no time is rounded.
class RandomRecording {
 public:
  explicit RandomRecording(uint32_t seed) : random_(seed), origin_(Pick(3) * 700) {
    now_ = origin_;
  }

  void Run() {
    Start();
    for (uint32_t sessions = 1 + Pick(4); sessions-- > 0;) {
      if (writer_ == nullptr) Continue();
      for (uint32_t fragments = Pick(4); fragments-- > 0;) AddFragment();
      // Only the first fragment and closing make the movie box that of a fragmented document.
      if (Pick(2) == 0 || fragments_.empty()) {
        file_ = writer_->Finish();
      } else {
        writer_->Destroy();  // Which writes the last fragment too.
        file_ = writer_->File();
      }
      writer_.reset();
    }
  }
  const Bytes& File() const { return file_; }
  const Samples& Expected(size_t track) const { return expected_[track]; }
  uint64_t FragmentCount() const { return fragments_.size(); }

 private:
  struct Fragment {
    uint64_t start = 0;
    uint64_t end = 0;
    size_t samplesBefore[3] = {};
  };

  uint32_t Pick(uint32_t count) { return static_cast<uint32_t>(random_() % count); }

  void Start() {
    writer_ = std::make_unique<OpenedK7RWriter>();
    const NewTrack hint{.mediaType = "hint", .gapCount = 60, .descriptorCount = 1, .flags = 0};
    tracks_ = {writer_->AddDescribedTrack({.gapCount = 60}),
               writer_->AddDescribedTrack({.mediaType = "soun", .gapCount = 60}), nullptr};
    EXPECT_EQ(writer_->TryAddHintTrack(hint, {tracks_[0]}, &tracks_[2]), 0u);
    writer_->SetTimeOrigin(tracks_[2], origin_);
  }
  /// Gives up some of the last fragments now and then, or bytes of the last one.
  void Continue() {
    size_t kept = fragments_.size();
    uint64_t keepLimit = ~uint64_t{0};
    if (Pick(2) == 0 && kept != 0) {
      kept = Pick(static_cast<uint32_t>(kept) + 1);
      keepLimit = kept == 0 ? 0 : fragments_[kept - 1].start + Pick(2);
    } else if (Pick(2) == 0 && kept != 0) {
      --kept;
      const uint64_t start = fragments_[kept].start;
      file_ = Cut(file_, start + Pick(static_cast<uint32_t>(fragments_[kept].end - start)));
    }
    if (kept < fragments_.size()) {
      for (size_t track = 0; track < 3; ++track) {
        expected_[track].resize(fragments_[kept].samplesBefore[track]);
      }
      fragments_.resize(kept);
    }
    writer_ = std::make_unique<OpenedK7RWriter>(file_, keepLimit);
    ASSERT_EQ(writer_->Result(), 0u);
    EXPECT_EQ(writer_->LastFragment(), kept == 0 ? 0 : fragments_.back().start);
    tracks_ = writer_->DescribedTracks();
  }

  void AddFragment() {
    Fragment fragment;
    fragment.start = writer_->StartFragment();
    for (size_t track = 0; track < 3; ++track) {
      fragment.samplesBefore[track] = expected_[track].size();
    }
    bool hasMedia = false;
    for (uint32_t steps = 1 + Pick(10); steps-- > 0;) hasMedia = Step() || hasMedia;
    if (!hasMedia) return;
    if (Pick(3) == 0) {
      EXPECT_EQ(writer_->TryAddAbst(Pattern(1 + Pick(40))), 0u);
    }
    writer_->Flush();
    fragment.end = writer_->File().Size();
    fragments_.push_back(fragment);
    if (Pick(4) == 0) {
      EXPECT_EQ(writer_->TryAddFullBox("free", 0, 0, Pattern(Pick(30))), 0u);
    }
  }

  /// Times of all tracks grow together, so that nothing comes before the end of the movie when the
  /// file is continued.
  bool Step() {
    now_ += 1 + Pick(Pick(8) == 0 ? 500 : 30);
    const bool isKey = Pick(2) == 0;
    NewSample sample{
        .time = now_, .data = Pattern(8 + Pick(60), ++seed_), .flags = isKey ? kKey : 0};
    switch (Pick(8)) {
      case 0: {
        const size_t track = Pick(3);
        // A gap that comes before every sample leaves the time in front of it to no sample.
        if (expected_[track].empty()) return false;
        sample.flags = kGap;
        writer_->Add(tracks_[track], sample, isKey);
        return false;
      }
      case 1:
      case 2:
        return Keep(1, sample, isKey);
      case 3:
        return Keep(2, sample, isKey);
      default: {
        const uint32_t offset = Pick(4);
        const auto size = static_cast<uint32_t>(sample.data.Size()) - offset - Pick(4);
        writer_->AddHint(tracks_[2], tracks_[0], sample, {offset, size}, isKey);
        expected_[0].push_back({now_ - origin_, sample.data.Slice(offset, size)});
        expected_[2].push_back({now_ - origin_, sample.data});
        return true;
      }
    }
  }
  bool Keep(size_t track, const NewSample& sample, bool isRandomAccess) {
    writer_->Add(tracks_[track], sample, isRandomAccess);
    expected_[track].push_back({sample.time - origin_, sample.data});
    return true;
  }

  std::mt19937 random_;
  uint32_t origin_;
  uint64_t now_ = 0;
  uint32_t seed_ = 0;
  std::vector<Fragment> fragments_;
  Bytes file_;
  std::unique_ptr<OpenedK7RWriter> writer_;
  std::vector<QiroK7MTrack*> tracks_;
  Samples expected_[3];
};

Samples SamplesIn(const OpenedReader& reader, size_t track, bool withEdits) {
  QiroK7MTrack* wanted = reader.TrackAt(track);
  QiroK7MSampleIterator* iterator = nullptr;
  if (withEdits) {
    EXPECT_EQ(QiroK7MReaderGetAllSamplesByTracks(reader.Handle(), &wanted, 1, &iterator), 0u);
  } else {
    EXPECT_EQ(QiroK7MReaderGetMediaSamples(reader.Handle(), &wanted, 1, &iterator), 0u);
  }
  Samples samples;
  for (const ReadSample& sample : Drain(iterator)) {
    if ((sample.info.flags & kQiroK7MSampleFlagKindMask) != kGap) {
      samples.push_back({sample.info.timeStamp, sample.data});
    }
  }
  return samples;
}

/// Every entry of an 'afra' leads to the bytes of a sample, the fragments have their order.
void ExpectSoundFragments(const Bytes& file, uint64_t count) {
  uint64_t moofs = 0;
  uint64_t afraOffset = 0;
  size_t position = 0;
  for (const std::string& code : CodesIn(file)) {
    const uint64_t size =
        file.NumberAt(position) == 1 ? file.NumberAt(position + 8, 8) : file.NumberAt(position);
    if (code == "afra") afraOffset = position;
    if (code == "moof") {
      EXPECT_EQ(file.NumberAt(position + 20), ++moofs);
    }
    if (code == "mdat") {
      for (size_t i = 0; i < file.NumberAt(afraOffset + 17); ++i) {
        const uint64_t place = afraOffset + file.NumberAt(afraOffset + 29 + 16 * i, 8);
        EXPECT_GE(place, position + 16);
        EXPECT_LT(place, position + size);
      }
    }
    position += size;
  }
  EXPECT_EQ(position, file.Size());
  EXPECT_EQ(moofs, count);
}

TEST(K7RRoundTrip, RandomRecordingsAreReadBackWhole) {
  uint64_t fragments = 0;
  for (uint32_t seed = 1; seed <= 300 && !::testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    RandomRecording recording(seed);
    recording.Run();
    OpenedReader reader(recording.File());
    ASSERT_EQ(reader.Result(), 0u);
    ExpectSoundFragments(recording.File(), recording.FragmentCount());
    for (size_t track = 0; track < 3; ++track) {
      SCOPED_TRACE(track);
      const Samples media = SamplesIn(reader, track, false);
      const Samples& expected = recording.Expected(track);
      ASSERT_EQ(media.size(), expected.size());
      for (size_t i = 0; i < media.size(); ++i) EXPECT_EQ(media[i].data, expected[i].data);
      EXPECT_EQ(SamplesIn(reader, track, true), expected);
    }
    fragments += recording.FragmentCount();
  }
  EXPECT_GT(fragments, 500u);
}

}  // namespace
}  // namespace k7mtest
