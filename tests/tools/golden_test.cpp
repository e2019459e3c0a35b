// What `info` and `tree` say about the clips in tests/data, word for word.
#include "golden.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "run_program.h"

namespace k7mtest {
namespace {

class GoldenTest : public testing::TestWithParam<const char*> {};

RunResult RunOnClip(const std::string& command, const std::string& clip) {
  return RunK7m({command, clip}, {.folder = K7M_TEST_DATA});
}

TEST_P(GoldenTest, InfoIsUnchanged) {
  const RunResult result = RunOnClip("info", GetParam());
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(IsGolden(std::string(GetParam()) + ".info.txt", result.out));
}

TEST_P(GoldenTest, TreeIsUnchanged) {
  const RunResult result = RunOnClip("tree", GetParam());
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(IsGolden(std::string(GetParam()) + ".tree.txt", result.out));
}

INSTANTIATE_TEST_SUITE_P(Clips, GoldenTest,
                         testing::Values("video-only.mp4", "h264-bframes-aac.mp4",
                                         "two-descriptions-two-audio.mp4", "co64-moov-last.mp4",
                                         "pcm.mov", "fragmented-absolute.mp4",
                                         "fragmented-base-is-moof.mp4",
                                         "fragmented-empty-moov.mp4"),
                         [](const auto& clip) {
                           std::string name = clip.param;
                           for (char& character : name) {
                             if (std::isalnum(static_cast<unsigned char>(character)) == 0) {
                               character = '_';
                             }
                           }
                           return name;
                         });

}  // namespace
}  // namespace k7mtest
