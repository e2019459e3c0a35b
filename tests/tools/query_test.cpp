// k7m query: single fragments, with an index and without one.
#include <gtest/gtest.h>

#include <filesystem>

#include "run_program.h"
#include "small_movie.h"
#include "support/fragment_file.h"

namespace k7mtest {
namespace {

class QueryTest : public testing::Test {
 protected:
  RunResult Run(const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"query", path_};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return RunK7m(arguments);
  }
  RunResult RunWith(const Bytes& index, std::vector<std::string> options) {
    options.insert(options.end(), {"--index", folder_.Write("live.idx", index)});
    return Run(options);
  }
  void ExpectFragment(const RunResult& result, size_t number) const {
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(Bytes().Text(result.out), file_.fragments[number - 1]);
  }
  static void ExpectProblem(const RunResult& result, const std::string& path,
                            const std::string& problem) {
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_EQ(result.out, "");
    const std::string begin = "k7m: " + path + ": " + problem;
    EXPECT_EQ(result.err.substr(0, begin.size()), begin);
  }
  TemporaryFolder folder_;
  const FragmentFile file_ = SomeFragments(4);
  const std::string path_ = folder_.Write("live.k7r", file_.bytes);
};

TEST_F(QueryTest, EveryFragmentGoesToTheStandardOutput) {
  for (size_t number = 1; number <= 4; ++number) {
    const std::string text = std::to_string(number);
    ExpectFragment(Run({"--fragment", text}), number);
    ExpectFragment(RunWith(LocalIndex(file_), {"--fragment", text}), number);
    ExpectFragment(RunWith(GlobalIndex(file_, {}, 1, 6), {"--fragment", text, "--segment", "6"}),
                   number);
  }
}

TEST_F(QueryTest, TheIndexOfTheProgramServesThem) {
  const std::string index = folder_.Path("made.idx");
  ASSERT_EQ(RunK7m({"index", path_, "-o", index}).exitCode, 0);
  for (size_t number = 1; number <= 4; ++number) {
    ExpectFragment(Run({"--fragment", std::to_string(number), "--index", index}), number);
  }
}

TEST_F(QueryTest, TheFragmentsMakeUpTheFile) {
  Bytes all = FragmentedMovieHead();
  for (size_t number = 1; number <= 4; ++number) {
    all.Append(Bytes().Text(Run({"--fragment", std::to_string(number)}).out));
  }
  EXPECT_EQ(all, file_.bytes);
}

TEST_F(QueryTest, AFileAppearsWhenItIsComplete) {
  const std::string output = folder_.Path("3.bin");
  const RunResult result = Run({"--fragment", "3", "-o", output});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(ReadBytes(output), file_.fragments[2]);
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"3.bin", "live.k7r"}));
}

TEST_F(QueryTest, AFailureLeavesNoFile) {
  ExpectProblem(Run({"--fragment", "5", "-o", folder_.Path("5.bin")}), path_,
                "kQiroK7MErrorFragmentNotFound (1024)");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"live.k7r"}));
}

TEST_F(QueryTest, AnExistingFileIsReplacedOnlyWithForce) {
  const std::string output = folder_.Write("1.bin", Bytes().Text("old"));
  ExpectProblem(Run({"--fragment", "1", "-o", output}), output, "there is such a file already");
  EXPECT_EQ(ReadText(output), "old");
  EXPECT_EQ(Run({"--fragment", "1", "-o", output, "--force"}).exitCode, 0);
  EXPECT_EQ(ReadBytes(output), file_.fragments[0]);
}

TEST_F(QueryTest, NeitherInputIsEverOverwritten) {
  const Bytes index = LocalIndex(file_);
  const std::string indexPath = folder_.Path("live.idx");
  std::filesystem::create_hard_link(path_, folder_.Path("twin.k7r"));
  for (const std::string& output : {path_, folder_.Path("twin.k7r"), indexPath}) {
    const RunResult result = RunWith(index, {"--fragment", "1", "-o", output, "--force"});
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.err, "k7m: " + output + ": the output would overwrite the input\n");
  }
  EXPECT_EQ(ReadBytes(path_), file_.bytes);
  EXPECT_EQ(ReadBytes(indexPath), index);
}

TEST_F(QueryTest, AnotherSegmentIsAFailure) {
  ExpectProblem(RunWith(GlobalIndex(file_), {"--fragment", "2", "--segment", "9"}),
                folder_.Path("live.idx"), "fragment 2 is not in segment 9\n");
}

TEST_F(QueryTest, FragmentsThatAreNotThereAreNamed) {
  ExpectProblem(RunWith(LocalIndex(file_), {"--fragment", "5"}), path_,
                "kQiroK7MErrorFragmentNotFound (1024)");
  ExpectProblem(RunWith(AfraBox({.locals = {{.offset = ~uint64_t{0}}}}), {"--fragment", "1"}),
                path_, "kQiroK7MErrorFragmentNotAvailable (26)");
  ExpectProblem(RunWith(AfraBox({.locals = {{.offset = 3}}}), {"--fragment", "1"}), path_,
                "kQiroK7MErrorBadFragmentFile (1025)");
  ExpectProblem(RunWith(AfraBox({.locals = {{.offset = 1000000}}}), {"--fragment", "1"}), path_,
                "kQiroK7MErrorReadFailed (5)");
}

TEST_F(QueryTest, FilesThatAreNoneAreNamed) {
  ExpectProblem(RunWith(file_.bytes, {"--fragment", "1"}), folder_.Path("live.idx"),
                "kQiroK7MErrorBadFragmentIndex (1026)");
  ExpectProblem(RunWith(Bytes(), {"--fragment", "1"}), folder_.Path("live.idx"),
                "kQiroK7MErrorBadFragmentIndex (1026)");
  const std::string none = folder_.Path("none");
  ExpectProblem(RunK7m({"query", none, "--fragment", "1"}), none, "No such file or directory\n");
  ExpectProblem(Run({"--fragment", "1", "--index", none}), none, "No such file or directory\n");
  const std::string plain = folder_.Write("plain.mp4", SmallFile());
  ExpectProblem(RunK7m({"query", plain, "--fragment", "1"}), plain,
                "kQiroK7MErrorFragmentNotFound (1024)");
  const std::string text = folder_.Write("text", Box("free"));
  ExpectProblem(RunK7m({"query", text, "--fragment", "1"}), text, "kQiroK7MErrorNoMovieBox (6)");
}

TEST_F(QueryTest, AFullDeviceIsAFailure) {
  ExpectProblem(Run({"--fragment", "1", "-o", "/dev/full"}), "/dev/full",
                "No space left on device\n");
}

TEST_F(QueryTest, UsageErrorsAndHelp) {
  const std::vector<std::vector<std::string>> attempts = {
      {},
      {"--fragment", "0"},
      {"--fragment", "-1"},
      {"--fragment", "4294967296"},
      {"--fragment", "x"},
      {"--fragment", "1", "--segment", "1"},
      {"--fragment", "1", "--index", path_, "--segment", "0"},
      {"--fragment", "1", "--frobnicate"}};
  for (const auto& options : attempts) {
    const RunResult result = Run(options);
    EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(options) << "\n" << result;
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(RunK7m({"query", "--fragment", "1"}).exitCode, 2);
  const RunResult help = RunK7m({"query", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Example:\n  k7m query live.k7r"), std::string::npos) << help;
}

}  // namespace
}  // namespace k7mtest
