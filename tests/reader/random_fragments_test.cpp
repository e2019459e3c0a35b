// Random fragmented files, each asked random questions by one reader; what the library delivers
// must equal the slow model.
#include <gtest/gtest.h>

#include "random_case.h"
#include "random_fragments.h"

namespace k7mtest {
namespace {

void CompareCounts(RandomCase& questions, FragmentModel& model) {
  for (size_t i = 0; i < questions.Tracks().size(); ++i) {
    uint32_t count = 0;
    EXPECT_EQ(QiroK7MTrackGetSampleCount(questions.Tracks()[i], &count), 0u);
    EXPECT_EQ(count, model.SampleCount(i));
  }
}

void AskSomething(Dice& dice, RandomCase& questions, FragmentModel& model) {
  switch (dice.Below(12)) {
    case 0:
      return questions.AskForAll();
    case 1:
      return questions.AskForMedia();
    case 2:
      return CompareCounts(questions, model);
    default:
      return questions.AskForRange();
  }
}

/// Puts all kinds of questions to one random file. The first ones may meet fragments that are not
/// parsed yet.
void Ask(uint32_t seed, Seen& seen) {
  Dice dice(seed);
  const RandomFragmentedFile file = MakeRandomFragmentedFile(dice);
  const uint32_t flags = dice.Below(4);
  OpenedReader reader(file.bytes, ReadFlags{flags});
  ASSERT_EQ(reader.Result(), 0u);
  FragmentModel model(file.movie, file.fragments, flags);
  const Oracle oracle = {
      [&](ModelTime start, ModelTime end, const std::vector<size_t>& tracks) {
        return model.Samples(start, end, tracks);
      },
      [&](const std::vector<size_t>& tracks) { return model.MediaSamples(tracks); }};
  RandomCase questions(dice, reader, file.timing, file.bytes, file.mdatOffset, oracle, seen);
  ASSERT_EQ(questions.Tracks().size(), file.movie.tracks.size());
  for (int i = 0; i < 6 && !::testing::Test::HasFailure(); ++i) {
    AskSomething(dice, questions, model);
  }
  if (::testing::Test::HasFailure()) return;
  questions.AskForAll();
  questions.AskForMedia();
  CompareCounts(questions, model);
  EXPECT_EQ(reader.Warnings().Count(kQiroK7MWarningUnknownSampleDescription),
            model.MissingDescriptions());
}

class RandomFragments : public ::testing::TestWithParam<uint32_t> {};

TEST_P(RandomFragments, AreDeliveredAsTheSlowModelExpects) {
  constexpr uint32_t kCasesPerTest = 300;
  Seen seen;
  for (uint32_t i = 0; i < kCasesPerTest; ++i) {
    const uint32_t seed = GetParam() * kCasesPerTest + i;
    Ask(seed, seen);
    if (HasFailure()) FAIL() << "seed " << seed;
  }
  EXPECT_GT(seen.samples, 10000u);
  EXPECT_GT(seen.gaps, 200u);
  EXPECT_GT(seen.keys, 1000u);
  EXPECT_GT(seen.withoutDescription, 30u);
  EXPECT_GT(seen.unreadable, 1000u);
  EXPECT_GT(seen.emptyAnswers, 200u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomFragments, ::testing::Range(0u, 10u));

}  // namespace
}  // namespace k7mtest
