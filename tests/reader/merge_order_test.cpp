// The order in which the samples of several tracks are delivered, against the plain rule: look at
// all tracks, take the first one that no other is before.
#include <gtest/gtest.h>

#include <random>

#include "internals/error_of.h"
#include "reader/doc_iterator.h"

namespace k7mtest {
namespace {

namespace impl = qiro::k7m::impl;

/// A track as numbers.
struct TrackTimes {
  uint32_t timeScale;
  std::vector<uint64_t> times;
};

/// Delivers samples with given times; each says in its size which track it comes from.
class GivenSamples final : public impl::SampleIterator {
 public:
  GivenSamples(uint32_t track, std::vector<uint64_t> times)
      : track_(track), times_(std::move(times)) {}

  bool HasMoreEntries() override { return next_ < times_.size(); }
  std::unique_ptr<impl::Sample> GetNextSample() override {
    if (!HasMoreEntries()) return nullptr;
    QiroK7MSampleInfo info{};
    info.timeStamp = times_.at(next_++);
    info.sampleSize = track_;
    return std::make_unique<impl::Sample>(info, 0, nullptr, nullptr, nullptr);
  }

 private:
  uint32_t track_;
  std::vector<uint64_t> times_;
  size_t next_ = 0;
};

struct Delivered {
  uint32_t track;
  uint64_t time;
  friend bool operator==(const Delivered&, const Delivered&) = default;
};
void PrintTo(const Delivered& delivered, std::ostream* out) {
  *out << delivered.track << ":" << delivered.time;
}

std::vector<Delivered> Merged(const std::vector<TrackTimes>& tracks) {
  impl::DocIterator merged;
  for (uint32_t i = 0; i < tracks.size(); ++i) {
    merged.AddTrack(std::make_unique<GivenSamples>(i, tracks[i].times), tracks[i].timeScale);
  }
  merged.Start();
  std::vector<Delivered> all;
  while (merged.HasMoreEntries()) {
    const auto sample = merged.GetNextSample();
    all.push_back({sample->GetInfo().sampleSize, sample->GetInfo().timeStamp});
  }
  EXPECT_EQ(merged.GetNextSample(), nullptr);
  return all;
}

std::vector<Delivered> MergedByRule(const std::vector<TrackTimes>& tracks) {
  std::vector<size_t> next(tracks.size());
  std::vector<Delivered> all;
  for (;;) {
    size_t best = tracks.size();
    for (size_t i = 0; i < tracks.size(); ++i) {
      if (next[i] == tracks[i].times.size()) continue;
      if (best == tracks.size() || tracks[i].times[next[i]] * tracks[best].timeScale <
                                       tracks[best].times[next[best]] * tracks[i].timeScale) {
        best = i;
      }
    }
    if (best == tracks.size()) return all;
    all.push_back({static_cast<uint32_t>(best), tracks[best].times[next[best]++]});
  }
}

class Tracks {
 public:
  explicit Tracks(uint32_t seed) : random_(seed) {}

  uint64_t Below(uint64_t limit) { return random_() % limit; }
  /// `largestStep` of 0 gives equal times.
  std::vector<TrackTimes> Make(size_t count, const std::vector<uint32_t>& scales, uint64_t start,
                               uint64_t largestStep) {
    std::vector<TrackTimes> tracks(count);
    for (TrackTimes& track : tracks) {
      track.timeScale = scales[Below(scales.size())];
      track.times.resize(Below(30));
      uint64_t time = start + Below(largestStep + 1);
      for (uint64_t& place : track.times) {
        place = time;
        time += Below(largestStep + 1);
      }
    }
    return tracks;
  }

 private:
  std::mt19937_64 random_;
};

TEST(MergeOrder, EqualTimesOfManyTracksStayInTheirOrder) {
  const auto tracks =
      std::vector<TrackTimes>(1000, {.timeScale = 600, .times = {0, 0, 5, 5, 5, 9}});
  const auto merged = Merged(tracks);
  ASSERT_EQ(merged.size(), 6000u);
  // A track gives all its equal times before the next one has its turn.
  for (uint32_t i = 0; i < 2000; ++i) ASSERT_EQ(merged[i], (Delivered{i / 2, 0}));
  EXPECT_EQ(merged, MergedByRule(tracks));
}

TEST(MergeOrder, EqualTimesOfDifferentScalesStayInTheOrderOfTheTracks) {
  for (uint32_t seed = 0; seed < 50; ++seed) {
    Tracks random(seed);
    auto tracks = random.Make(40, {1, 2, 3, 6, 600}, 0, 3);
    for (TrackTimes& track : tracks) {
      for (uint64_t& time : track.times) time *= track.timeScale;  // Whole seconds: many are equal.
    }
    ASSERT_EQ(Merged(tracks), MergedByRule(tracks)) << seed;
  }
}

TEST(MergeOrder, IsThatOfThePlainRuleForOrdinaryTimes) {
  for (uint32_t seed = 0; seed < 100; ++seed) {
    const auto tracks = Tracks(seed).Make(30, {600, 1000, 44100, 90000, 0xFFFFFFFF}, 0, 5000);
    ASSERT_EQ(Merged(tracks), MergedByRule(tracks)) << seed;
  }
}

TEST(MergeOrder, IsThatOfThePlainRuleWhereProductsWrap) {
  for (uint32_t seed = 0; seed < 100; ++seed) {
    const auto tracks = Tracks(seed).Make(30, {1, 90000, 0x80000000, 0xFFFFFFFF},
                                          (uint64_t{1} << 32) - 1000, uint64_t{1} << 60);
    ASSERT_EQ(Merged(tracks), MergedByRule(tracks)) << seed;
  }
}

TEST(MergeOrder, IsThatOfThePlainRuleWhereProductsStartToWrapOnTheWay) {
  for (uint32_t seed = 0; seed < 200; ++seed) {
    // The largest time whose product with the largest scale fits is 2^32 + 1.
    const auto tracks = Tracks(seed).Make(30, {90000, 0xFFFFFFFF}, (uint64_t{1} << 32) - 200, 30);
    ASSERT_EQ(Merged(tracks), MergedByRule(tracks)) << seed;
  }
}

TEST(MergeOrder, IsThatOfThePlainRuleForScaleZero) {
  for (uint32_t seed = 0; seed < 100; ++seed) {
    const auto tracks = Tracks(seed).Make(20, {0, 1, 600}, 0, 20);
    ASSERT_EQ(Merged(tracks), MergedByRule(tracks)) << seed;
  }
}

}  // namespace
}  // namespace k7mtest
