// Random files, each asked random questions; what the library delivers must equal the slow model.
#include <gtest/gtest.h>

#include "random_case.h"

namespace k7mtest {
namespace {

/// Puts all kinds of questions to one random file.
void Ask(uint32_t seed, Seen& seen) {
  Dice dice(seed);
  const RandomFile file = MakeRandomFile(dice);
  OpenedReader reader(file.bytes);
  ASSERT_EQ(reader.Result(), 0u);
  const Oracle oracle = {
      [&](ModelTime start, ModelTime end, const std::vector<size_t>& tracks) {
        return ExpectSamples(file.movie, start, end, tracks);
      },
      [&](const std::vector<size_t>& tracks) { return ExpectMediaSamples(file.movie, tracks); }};
  RandomCase questions(dice, reader, file.movie, file.bytes, file.mdatOffset, oracle, seen);
  ASSERT_EQ(questions.Tracks().size(), file.movie.tracks.size());
  questions.AskForAll();
  questions.AskForMedia();
  for (int i = 0; i < 6 && !::testing::Test::HasFailure(); ++i) questions.AskForRange();
}

class RandomQueries : public ::testing::TestWithParam<uint32_t> {};

TEST_P(RandomQueries, DeliverWhatTheSlowModelExpects) {
  constexpr uint32_t kCasesPerTest = 500;
  Seen seen;
  for (uint32_t i = 0; i < kCasesPerTest; ++i) {
    const uint32_t seed = GetParam() * kCasesPerTest + i;
    Ask(seed, seen);
    if (HasFailure()) FAIL() << "seed " << seed;
  }
  EXPECT_GT(seen.samples, 10000u);
  EXPECT_GT(seen.gaps, 300u);
  EXPECT_GT(seen.keys, 300u);
  EXPECT_GT(seen.withoutDescription, 30u);
  EXPECT_GT(seen.unreadable, 30u);
  EXPECT_GT(seen.emptyAnswers, 300u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomQueries, ::testing::Range(0u, 10u));

}  // namespace
}  // namespace k7mtest
