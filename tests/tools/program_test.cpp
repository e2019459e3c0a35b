// What all commands have in common: usage, help, files that cannot be read, warnings, closed
// outputs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <k7m/k7m.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

/// The small file with an unknown box at the end of the movie box that claims more than is left.
Bytes OverlongFile() {
  Movie movie = SmallMovie();
  movie.moreInMoov = LyingBox("junk", 100, Bytes{1, 2, 3});
  return BuildMovie(movie).bytes;
}

class EveryCommand : public testing::TestWithParam<const char*> {
 protected:
  // The command with the options that it cannot do without.
  static RunResult Run(const std::string& file, std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {GetParam(), file};
    if (arguments[0] == "extract") arguments.insert(arguments.end(), {"--track", "1", "-o", "-"});
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunK7m(arguments);
  }
  TemporaryFolder folder_;
};

TEST_P(EveryCommand, HelpShowsAnExample) {
  const RunResult result = RunK7m({GetParam(), "--help"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_NE(result.out.find(std::string("Example:\n  k7m ") + GetParam()), std::string::npos)
      << result;
  EXPECT_NE(result.out.find("--strict"), std::string::npos) << result;
}

TEST_P(EveryCommand, WithoutAFileIsAUsageError) {
  const RunResult result = RunK7m({GetParam()});
  EXPECT_EQ(result.exitCode, 2) << result;
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("FILE"), std::string::npos) << result;
}

TEST_P(EveryCommand, AnUnknownOptionIsAUsageError) {
  const RunResult result = Run("clip.mp4", {"--frobnicate"});
  EXPECT_EQ(result.exitCode, 2) << result;
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("--frobnicate"), std::string::npos) << result;
}

TEST_P(EveryCommand, AMissingFileShowsTheSystemsMessage) {
  const std::string path = folder_.Path("missing.mp4");
  const RunResult result = Run(path);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "k7m: " + path + ": No such file or directory\n");
}

TEST_P(EveryCommand, AFolderShowsTheSystemsMessage) {
  const std::string path = folder_.Path("");
  const RunResult result = Run(path);
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "k7m: " + path + ": Is a directory\n");
}

TEST_P(EveryCommand, AnEmptyFileIsRefused) {
  const RunResult result = Run(folder_.Write("empty.mp4", Bytes()));
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.out, "");
  const bool isTree = std::string(GetParam()) == "tree";
  EXPECT_NE(result.err.find(isTree ? "no boxes" : "kQiroK7MErrorNoMovieBox (6)"), std::string::npos)
      << result;
}

TEST_P(EveryCommand, ATextFileIsRefused) {
  const std::string path = folder_.Write("notes.mp4", Bytes().Text("These are only words.\n"));
  const RunResult result = Run(path);
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_NE(result.err.find("k7m: " + path + ": "), std::string::npos) << result;
  EXPECT_NE(result.err.find("kQiroK7MErrorBoxTruncated (27)"), std::string::npos) << result;
}

TEST_P(EveryCommand, ATruncatedMovieBoxIsRefused) {
  const MovieFile movie = BuildMovie(SmallMovie());
  const Bytes cut = Cut(movie.bytes, movie.movieOffset + 200);
  const RunResult result = Run(folder_.Write("cut.mp4", cut));
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_NE(result.err.find("kQiroK7MErrorBoxTruncated (27)"), std::string::npos) << result;
}

TEST_P(EveryCommand, StrictMakesAWarningFatal) {
  const std::string path = folder_.Write("overlong.mp4", OverlongFile());
  const RunResult tolerant = Run(path);
  EXPECT_EQ(tolerant.exitCode, 0) << tolerant;
  EXPECT_NE(tolerant.out, "");
  EXPECT_NE(tolerant.err.find("k7m: " + path + ": warning: kQiroK7MWarningBoxPastParent (3075): "),
            std::string::npos)
      << tolerant;
  const RunResult strict = Run(path, {"--strict"});
  EXPECT_EQ(strict.exitCode, 1) << strict;
  EXPECT_NE(strict.err.find("warning: kQiroK7MWarningBoxPastParent (3075): "), std::string::npos);
  EXPECT_NE(strict.err.find("k7m: " + path + ": kQiroK7MErrorAbortedByWarningHandler (1028): "),
            std::string::npos)
      << strict;
}

INSTANTIATE_TEST_SUITE_P(Commands, EveryCommand,
                         testing::Values("info", "tree", "samples", "extract"),
                         [](const auto& command) { return std::string(command.param); });

TEST(Program, WithoutACommandIsAUsageError) {
  const RunResult result = RunK7m({});
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "k7m: A subcommand is required (see k7m --help)\n");
}

TEST(Program, AnUnknownCommandIsAUsageError) {
  const RunResult result = RunK7m({"explode", "clip.mp4"});
  EXPECT_EQ(result.exitCode, 2) << result;
  EXPECT_EQ(result.out, "");
}

TEST(Program, HelpNamesEveryCommandAndAnExample) {
  const RunResult result = RunK7m({"--help"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  for (const char* word :
       {"info", "tree", "samples", "extract", "index", "query", "Example:\n  k7m info clip.mp4"}) {
    EXPECT_NE(result.out.find(word), std::string::npos) << word << "\n" << result;
  }
}

TEST(Program, VersionIsTheLibrarys) {
  const RunResult result = RunK7m({"--version"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, std::string(QiroK7MGetLibraryVersion()) + "\n");
}

TEST(Program, AFullDeviceFailsWithTheSystemsMessage) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("small.mp4", SmallFile());
  const std::vector<std::vector<std::string>> commands = {
      {"info", path},
      {"tree", path},
      {"samples", path},
      {"--help"},
      {"extract", path, "--track", "1", "-o", "-"}};
  for (const auto& arguments : commands) {
    const RunResult result = RunK7m(arguments, {.stdoutPath = "/dev/full"});
    EXPECT_EQ(result.exitCode, 1) << arguments[0];
    EXPECT_EQ(result.err, "k7m: standard output: No space left on device\n") << arguments[0];
  }
}

TEST(Program, AReaderThatLeavesEndsItQuietly) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("small.mp4", SmallFile());
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);  // Nobody reads: the first write fails.
  const std::string errPath = folder.Write("err.txt", Bytes());
  const int err = open(errPath.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(err, 0);
  EXPECT_EQ(WaitFor(StartK7m({"samples", path}, ends[1], err)), 0);
  EXPECT_EQ(ReadText(errPath), "");
  close(ends[1]);
  close(err);
}

TEST(Program, AFailureIsToldEvenWhenNobodyReads) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("notes.mp4", Bytes().Text("These are only words.\n"));
  const RunResult result = RunK7m({"tree", path}, {.stdoutPath = "/dev/full"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find("kQiroK7MErrorBoxTruncated (27)"), std::string::npos) << result;
  EXPECT_NE(result.err.find("standard output: No space left on device"), std::string::npos)
      << result;
}

TEST(Program, ControlCharactersInAFileNameDoNotReachTheTerminal) {
  const RunResult result = RunK7m({"info", "no\x1b[2Jsuch.mp4"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "k7m: no\\x1B[2Jsuch.mp4: No such file or directory\n");
}

TEST(Program, ManyEqualWarningsAreCountedNotRepeated) {
  Bytes junk;
  Movie movie = SmallMovie();
  // Each of these containers holds a box that claims to be longer than it.
  for (int i = 0; i < 12; ++i) junk.Append(Box("tref", LyingBox("hint", 100, Bytes().U32(1))));
  movie.tracks[0].moreInTrak = junk;
  const TemporaryFolder folder;
  const RunResult result = RunK7m({"info", folder.Write("noisy.mp4", BuildMovie(movie).bytes)});
  EXPECT_EQ(result.exitCode, 0) << result;
  size_t lines = 0;
  for (const char character : result.err) lines += character == '\n' ? 1 : 0;
  EXPECT_EQ(lines, 6u) << result;
  EXPECT_NE(result.err.find("(3075): 7 more of these"), std::string::npos) << result;
}

}  // namespace
}  // namespace k7mtest
