// Where every byte of a copy's boxes lies, word for word.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

#include "golden.h"
#include "run_program.h"

namespace k7mtest {
namespace {

class RemuxGoldenTest : public testing::TestWithParam<const char*> {};

TEST_P(RemuxGoldenTest, TreeOfTheCopyIsUnchanged) {
  const TemporaryFolder folder;
  const std::string source = std::string(K7M_TEST_DATA) + "/" + GetParam();
  ASSERT_EQ(RunK7m({"remux", source, folder.Path("copy.mp4")}).exitCode, 0);
  const RunResult result = RunK7m({"tree", "copy.mp4"}, {.folder = folder.Path("")});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(IsGolden(std::string(GetParam()) + ".remux-tree.txt", result.out));
}

TEST(RemuxGolden, TreeOfAFragmentedCopyIsUnchanged) {
  const TemporaryFolder folder;
  const std::string source = std::string(K7M_TEST_DATA) + "/fragmented-empty-moov.mp4";
  ASSERT_EQ(RunK7m({"remux", source, folder.Path("copy.mp4"), "--fragmented"}).exitCode, 0);
  const RunResult result = RunK7m({"tree", "copy.mp4"}, {.folder = folder.Path("")});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(IsGolden("fragmented-empty-moov.mp4.remux-fragmented-tree.txt", result.out));
}

INSTANTIATE_TEST_SUITE_P(Clips, RemuxGoldenTest,
                         testing::Values("video-only.mp4", "h264-bframes-aac.mp4",
                                         "two-descriptions-two-audio.mp4", "co64-moov-last.mp4"),
                         [](const auto& clip) {
                           std::string name = clip.param;
                           std::replace_if(
                               name.begin(), name.end(),
                               [](unsigned char character) { return std::isalnum(character) == 0; },
                               '_');
                           return name;
                         });

}  // namespace
}  // namespace k7mtest
