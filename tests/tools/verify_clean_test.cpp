// `k7m verify`: files that are in order have no faults, those of this program's own writers above
// all.
#include "../reader/media_files.h"
#include "small_fragments.h"
#include "verified_file.h"

namespace k7mtest {
namespace {

void ExpectClean(const std::string& path) {
  const RunResult result = RunK7m({"verify", path});
  EXPECT_EQ(result.exitCode, 0) << path << "\n" << result;
  EXPECT_EQ(result.err, "");
}

TEST(VerifyClean, TheFilesOfTheTestsAreClean) {
  const std::vector<std::string> files = DataFiles();
  ASSERT_FALSE(files.empty());
  for (const std::string& path : files) ExpectClean(path);
}

TEST(VerifyClean, WhatTheProgramWritesIsClean) {
  const TemporaryFolder folder;
  for (const std::string& path : DataFiles()) {
    SCOPED_TRACE(path);
    const std::string copy = folder.Path("copy.mp4");
    ASSERT_EQ(RunK7m({"remux", path, copy, "--force"}).exitCode, 0);
    ExpectClean(copy);
    ASSERT_EQ(RunK7m({"remux", path, copy, "--force", "--fragmented=0.5"}).exitCode, 0);
    ExpectClean(copy);
  }
}

TEST(VerifyClean, RecordingsAreCleanAlsoWhenContinued) {
  const TemporaryFolder folder;
  for (const std::string& path : DataFiles()) {
    SCOPED_TRACE(path);
    const std::string live = folder.Path("live.k7r");
    ASSERT_EQ(RunK7m({"fragment", path, live, "--force", "--duration", "0.5"}).exitCode, 0);
    ExpectClean(live);
    const RunResult appended = RunK7m({"append", live, path});
    if (appended.exitCode == 0) ExpectClean(live);
  }
}

}  // namespace
}  // namespace k7mtest
