// k7m index: what stands in the index, and files of which none can be made.
#include <gtest/gtest.h>

#include "run_program.h"
#include "small_movie.h"
#include "support/fragment_file.h"

namespace k7mtest {
namespace {

class IndexTest : public testing::Test {
 protected:
  RunResult Run(const Bytes& file, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"index", folder_.Write("live.k7r", file), "-o",
                                          folder_.Path("live.idx")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunK7m(arguments);
  }
  /// The index of a file, which must be made without a message.
  Bytes IndexOf(const Bytes& file) {
    const RunResult result = Run(file, {"--force"});
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    return ReadBytes(folder_.Path("live.idx"));
  }
  /// The message about a file of which no index is made.
  std::string ProblemOf(const Bytes& file) {
    const RunResult result = Run(file);
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"live.k7r"}));
    const std::string begin = "k7m: " + folder_.Path("live.k7r") + ": ";
    EXPECT_EQ(result.err.substr(0, begin.size()), begin);
    return result.err.substr(begin.size());
  }
  TemporaryFolder folder_;
};

TEST_F(IndexTest, HasOneLocalEntryForEachFragment) {
  const FragmentFile file = SomeFragments(5);
  EXPECT_EQ(IndexOf(file.bytes), LocalIndex(file));
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"live.idx", "live.k7r"}));
}

TEST_F(IndexTest, PassesOverBoxesBetweenFragments) {
  const Bytes between = Box("free", Pattern(7)) + LargeBox("mfra");
  const FragmentFile file =
      BuildFragmentFile({{.before = between}, {.hasLargeMdat = true, .before = between}}, between);
  const Bytes index = IndexOf(file.bytes);
  EXPECT_EQ(index.NumberAt(17), 2u);
  EXPECT_EQ(index.NumberAt(29, 8), file.offsets[0]);
  EXPECT_EQ(index.NumberAt(45, 8), file.offsets[1]);
}

TEST_F(IndexTest, TimesAreThoseOfTheFirstEntries) {
  const Afra sparse{.timeScale = 500, .locals = {{.time = 1000}, {.time = 1500}}};
  const Afra none{.timeScale = 90000};
  const Afra other{.timeScale = 1000, .locals = {{.time = 6001}}};
  const Bytes index = IndexOf(
      BuildFragmentFile({{.afra = none}, {.afra = sparse}, {.afra = none}, {.afra = other}}).bytes);
  EXPECT_EQ(index.NumberAt(13), 90000u) << "the time scale of the first fragment";
  std::vector<uint64_t> times;
  for (size_t i = 0; i < 4; ++i) times.push_back(index.NumberAt(21 + 16 * i, 8));
  EXPECT_EQ(times, (std::vector<uint64_t>{0, 180000, 180000, 540090}));
}

TEST_F(IndexTest, AnExistingFileIsReplacedOnlyWithForce) {
  const FragmentFile file = SomeFragments(2);
  folder_.Write("live.idx", Bytes().Text("old"));
  const RunResult result = Run(file.bytes);
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_NE(result.err.find("there is such a file already (--force replaces it)"),
            std::string::npos);
  EXPECT_EQ(ReadText(folder_.Path("live.idx")), "old");
  EXPECT_EQ(IndexOf(file.bytes), LocalIndex(file));
}

TEST_F(IndexTest, MayGoToTheStandardOutput) {
  const FragmentFile file = SomeFragments(2);
  const RunResult result = RunK7m({"index", folder_.Write("live.k7r", file.bytes), "-o", "-"});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(Bytes().Text(result.out), LocalIndex(file));
}

TEST_F(IndexTest, TheInputIsNeverOverwritten) {
  const Bytes file = SomeFragments(1).bytes;
  const std::string path = folder_.Write("live.k7r", file);
  const RunResult result = RunK7m({"index", path, "-o", path, "--force"});
  EXPECT_EQ(result.exitCode, 2) << result;
  EXPECT_EQ(result.err, "k7m: " + path + ": the output would overwrite the input\n");
  EXPECT_EQ(ReadBytes(path), file);
}

TEST_F(IndexTest, AnUnfinishedLastFragmentIsLeftOut) {
  const FragmentFile file = SomeFragments(3);
  const size_t last = file.fragments[2].Size();
  for (size_t cut = 1; cut <= last; ++cut) {
    const RunResult result = Run(Cut(file.bytes, file.bytes.Size() - cut), {"--force"});
    EXPECT_EQ(result.exitCode, 0) << result;
    const bool hasBegun = cut <= last - file.fragments[2].NumberAt(0);
    EXPECT_EQ(result.err.find("is not complete; left out") != std::string::npos, hasBegun)
        << cut << "\n"
        << result;
    EXPECT_EQ(ReadBytes(folder_.Path("live.idx")).NumberAt(17), 2u);
    if (HasFailure()) break;
  }
}

TEST_F(IndexTest, AFileThatIsNoneIsRefused) {
  EXPECT_EQ(ProblemOf(SmallFile()), "the file is not fragmented\n");
  EXPECT_EQ(ProblemOf(FragmentedMovieHead()), "no fragment that is complete\n");
  EXPECT_NE(ProblemOf(Box("free")).find("(6)"), std::string::npos);
}

TEST_F(IndexTest, BoxesWhereNoneCanStandAreRefused) {
  const Bytes head = FragmentedMovieHead();
  const Bytes afra = AfraBox({});
  const Bytes moof = Moof(1, {Pattern(4)}, 0);
  const Bytes mdat = Box("mdat", Pattern(4));
  const std::string at = "at byte " + std::to_string(head.Size());
  EXPECT_EQ(
      ProblemOf(head + moof + mdat),
      "'moof' " + at + " stands before any 'afra' of its own, where no fragment can have it\n");
  EXPECT_EQ(
      ProblemOf(head + mdat),
      "'mdat' " + at + " stands before any 'afra' of its own, where no fragment can have it\n");
  const struct {
    Bytes boxes;
    std::string message;
  } files[] = {
      {afra + mdat + moof, "'mdat' at byte"},
      {afra + afra, "'afra' at byte"},
      {afra + Box("free") + moof + mdat, "'free' at byte"},
      {afra + moof + Box("free") + mdat, "'free' at byte"},
      {afra + moof + moof, "'moof' at byte"},
      {Box("abst") + afra + moof + mdat, "'abst' at byte"},
  };
  for (const auto& file : files) {
    EXPECT_EQ(ProblemOf(head + file.boxes).substr(0, file.message.size()), file.message);
  }
  const std::string tooSmall = ProblemOf(head + afra + moof + mdat + LyingBox("free", 5));
  EXPECT_NE(tooSmall.find("kQiroK7MErrorBoxTruncated (27)"), std::string::npos) << tooSmall;
}

TEST_F(IndexTest, UsageErrorsAndHelp) {
  const std::string path = folder_.Write("live.k7r", SomeFragments(1).bytes);
  EXPECT_EQ(RunK7m({"index", path}).exitCode, 2);
  EXPECT_EQ(RunK7m({"index", "-o", folder_.Path("live.idx")}).exitCode, 2);
  EXPECT_EQ(RunK7m({"index", path, "-o", "-", "--frobnicate"}).exitCode, 2);
  const RunResult help = RunK7m({"index", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Example:\n  k7m index live.k7r -o live.idx"), std::string::npos) << help;
  const RunResult missing = RunK7m({"index", folder_.Path("none.k7r"), "-o", "-"});
  EXPECT_EQ(missing.exitCode, 1);
  EXPECT_EQ(missing.err, "k7m: " + folder_.Path("none.k7r") + ": No such file or directory\n");
}

}  // namespace
}  // namespace k7mtest
