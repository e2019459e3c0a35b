// `k7m verify`: what it prints and answers.
#include <fcntl.h>

#include "small_movie.h"
#include "verified_file.h"

namespace k7mtest {
namespace {

using Json = nlohmann::json;

Bytes WithSyncSamples(size_t count) {
  Movie movie = SmallMovie();
  movie.tracks[0].replace["stss"] =
      FullBox("stss", 0, 0, Stss{.numbers = std::vector<uint32_t>(count, 99)});
  return BuildMovie(movie).bytes;
}

TEST(VerifyCommand, ACleanFileGivesTheCountsAlone) {
  const TemporaryFolder folder;
  const RunResult result = RunK7m({"verify", folder.Write("clip.mp4", SmallFile())});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.out, "0 errors, 0 warnings, 0 notes\n");
  EXPECT_EQ(result.err, "");
}

TEST(VerifyCommand, AFindingHasPathOffsetFiguresAndConsequence) {
  const TemporaryFolder folder;
  const Bytes file = WithSyncSamples(1);
  const RunResult result = RunK7m({"verify", folder.Write("clip.mp4", file)});
  EXPECT_EQ(result.exitCode, 1) << result;
  size_t entry = 0;
  while (file.NumberAt(entry) != Code("stss")) ++entry;
  EXPECT_EQ(result.out, "error stss-range: moov/trak[1]/mdia/minf/stbl/stss at byte " +
                            std::to_string(entry + 12) +
                            ": entry 1 names sample 99 of 5\n"
                            "  players seek to a sample that is not there\n"
                            "1 error, 0 warnings, 0 notes\n");
}

TEST(VerifyCommand, ManyFindingsOfOneKindAreFolded) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("clip.mp4", WithSyncSamples(25));
  const RunResult text = RunK7m({"verify", path});
  EXPECT_NE(text.out.find("entry 10 names"), std::string::npos) << text;
  EXPECT_EQ(text.out.find("entry 11 names"), std::string::npos) << text;
  EXPECT_NE(text.out.find("\nerror stss-range: moov/trak[1]/mdia/minf/stbl/stss: 15 more of "
                          "these\n25 errors, 0 warnings, 0 notes\n"),
            std::string::npos)
      << text;
  const Json json = Json::parse(RunK7m({"verify", path, "--json"}).out);
  EXPECT_EQ(json["file"], path);
  EXPECT_EQ(json["errorCount"], 25);
  EXPECT_EQ(json["warningCount"], 0);
  EXPECT_EQ(json["infoCount"], 0);
  ASSERT_EQ(json["findings"].size(), 1u);
  EXPECT_EQ(json["findings"][0]["count"], 25);
  EXPECT_EQ(json["findings"][0]["places"].size(), 10u);
}

// However many boxes break a rule, the list stays short.
TEST(VerifyCommand, ManyBoxesOfOneKindAreFolded) {
  Movie movie = SmallMovie();
  for (int i = 0; i < 150; ++i) movie.moreInMoov.Append(FullBox("stss", 0, 0, Stss{}));
  const Verdict verdict = Verify(BuildMovie(movie).bytes);
  EXPECT_EQ(verdict.exitCode, 3);
  EXPECT_EQ(verdict.json["warningCount"], 150);
  ASSERT_EQ(verdict.json["findings"].size(), 101u);
  EXPECT_EQ(verdict.json["findings"][0]["path"], "moov/stss[1]");
  EXPECT_EQ(verdict.json["findings"][100]["path"], "further boxes");
  EXPECT_EQ(verdict.json["findings"][100]["count"], 50);
}

TEST(VerifyCommand, TheWorstComesFirst) {
  Movie movie = SmallMovie();
  movie.isMovieBoxLast = true;
  movie.duration = 5000;
  movie.tracks[0].replace["stss"] = FullBox("stss", 0, 0, Stss{.numbers = {99}});
  const Json findings = Verify(BuildMovie(movie).bytes).json["findings"];
  ASSERT_EQ(findings.size(), 3u);
  EXPECT_EQ(findings[0]["severity"], "error");
  EXPECT_EQ(findings[1]["severity"], "warning");
  EXPECT_EQ(findings[2]["severity"], "info");
}

TEST(VerifyCommand, AFileThatCannotBeOpenedIsAFailure) {
  const TemporaryFolder folder;
  const std::string missing = folder.Path("missing.mp4");
  const RunResult result = RunK7m({"verify", missing});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "k7m: " + missing + ": No such file or directory\n");
  EXPECT_EQ(RunK7m({"verify", folder.Path("")}).exitCode, 1);
}

TEST(VerifyCommand, WhatIsNoMediaFileIsAnError) {
  EXPECT_EQ(Verify(Bytes()).Rules(), (std::set<std::string>{"moov-missing"}));
  const Verdict text = Verify(Bytes().Text("These are only words.\n"));
  EXPECT_EQ(text.exitCode, 1);
  EXPECT_EQ(text.Rules(), (std::set<std::string>{"box-past-end", "moov-missing"}));
}

TEST(VerifyCommand, UsageErrorsAreThoseOfTheOtherCommands) {
  EXPECT_EQ(RunK7m({"verify"}).exitCode, 2);
  EXPECT_EQ(RunK7m({"verify", "clip.mp4", "--frobnicate"}).exitCode, 2);
  const RunResult help = RunK7m({"verify", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Example:\n  k7m verify"), std::string::npos) << help;
}

TEST(VerifyCommand, TextInAFileCannotControlTheTerminal) {
  const TemporaryFolder folder;
  const Bytes file = SmallFile() + LyingBox(
                                       "a\xA9\x20"
                                       "b",
                                       100, Bytes{1});
  const RunResult result = RunK7m({"verify", folder.Write("clip.mp4", file)});
  EXPECT_NE(result.out.find("'a\\xA9 b' of 100 bytes"), std::string::npos) << result;
}

}  // namespace
}  // namespace k7mtest
