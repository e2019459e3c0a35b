#include <gtest/gtest.h>

#include "random_session.h"

namespace k7mtest {
namespace {

/// Runs a session and compares what is read back at every flush and at the end.
void RunSession(uint32_t seed, const SessionOptions& options, uint32_t& comparisons) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  RandomSession session(seed, options);
  session.Run([&](RandomSession& now) {
    ++comparisons;
    bool hasMedia = false;
    for (const ModelTrack& track : now.Model()) hasMedia = hasMedia || track.SampleCount() != 0;
    // Before the first media sample a flush writes nothing, the edit lists included.
    if (hasMedia) ExpectFileHolds(now.Writer().File(), now.Model());
  });
  bool hasMedia = false;
  for (const ModelTrack& track : session.Model()) hasMedia = hasMedia || track.SampleCount() != 0;
  const Bytes file = session.Writer().Finish();
  if (hasMedia) ExpectFileHolds(file, session.Model());
}

class RoundTrip : public ::testing::TestWithParam<uint32_t> {};

TEST_P(RoundTrip, WhatWasAddedIsReadBack) {
  constexpr uint32_t kSeedsPerTest = 500;
  uint32_t comparisons = 0;
  for (uint32_t i = 0; i < kSeedsPerTest && !HasFailure(); ++i) {
    RunSession(GetParam() * kSeedsPerTest + i, {}, comparisons);
  }
  EXPECT_GT(comparisons, kSeedsPerTest / 2);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RoundTrip, ::testing::Range(0u, 8u));

TEST(RoundTripOfEqualScales, EverySampleComesAtItsTime) {
  // Every time is a whole number in movie scale here, so that gaps are compared in every session.
  const SessionOptions options{.timeScales = {1000}, .maxSteps = 80};
  uint32_t comparisons = 0;
  for (uint32_t seed = 100000; seed < 101000 && !HasFailure(); ++seed) {
    RunSession(seed, options, comparisons);
  }
}

}  // namespace
}  // namespace k7mtest
