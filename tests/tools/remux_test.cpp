// The command itself: what it refuses, what it leaves behind, and its options.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

// Every case is tried with a plain copy and with a fragmented one.
class RemuxTest : public testing::TestWithParam<const char*> {
 protected:
  std::string Clip() { return folder_.Write("clip.mp4", SmallFile()); }
  std::string Output() const { return folder_.Path("copy.mp4"); }
  RunResult Run(const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {Clip(), Output()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return Remux(arguments);
  }
  static std::vector<std::string> CommandLine(const std::vector<std::string>& arguments) {
    std::vector<std::string> all = {"remux"};
    if (*GetParam() != '\0') all.emplace_back(GetParam());
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }
  static RunResult Remux(const std::vector<std::string>& arguments) {
    return RunK7m(CommandLine(arguments));
  }
  std::string MetadataOf(const std::string& path) {
    return RunK7m({"extract", path, "--metadata", "-o", "-"}).out;
  }
  // The only file is the input.
  void ExpectNothingLeft() { EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"})); }
  TemporaryFolder folder_;
};

TEST_P(RemuxTest, SaysNothingWhenAllIsWell) {
  const RunResult result = Run();
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4", "copy.mp4"}));
}

TEST_P(RemuxTest, AnExistingFileIsReplacedOnlyWhenAskedTo) {
  folder_.Write("copy.mp4", Bytes().Text("old"));
  const RunResult refused = Run();
  EXPECT_EQ(refused.exitCode, 1) << refused;
  EXPECT_EQ(refused.err,
            "k7m: " + Output() + ": there is such a file already (--force replaces it)\n");
  EXPECT_EQ(ReadText(Output()), "old");
  EXPECT_EQ(Run({"--force"}).exitCode, 0);
  EXPECT_NE(ReadText(Output()), "old");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4", "copy.mp4"}));
}

TEST_P(RemuxTest, TheInputIsNeverOverwritten) {
  const std::string clip = Clip();
  std::filesystem::create_symlink(clip, folder_.Path("link.mp4"));
  std::filesystem::create_hard_link(clip, folder_.Path("twin.mp4"));
  for (const std::string& output : {clip, folder_.Path("link.mp4"), folder_.Path("twin.mp4")}) {
    const RunResult result = Remux({clip, output, "--force"});
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.err, "k7m: " + output + ": the output would overwrite the input\n");
  }
  EXPECT_EQ(ReadBytes(clip), SmallFile());
}

TEST_P(RemuxTest, OutputsThatAreNoFilesAreRefused) {
  const std::string clip = Clip();
  const struct {
    std::string output;
    int exitCode;
    std::string message;
  } attempts[] = {
      {folder_.Path("no/such/copy.mp4"), 1, "No such file or directory"},
      {folder_.Path(""), 1, "Is a directory"},
      {"/dev/full", 1, "not a regular file"},
      {"/proc/copy.mp4", 1, ""},
      {"-", 2, "remux writes in several places and needs a file, not the standard output"},
  };
  for (const auto& attempt : attempts) {
    const RunResult result = Remux({clip, attempt.output, "--force"});
    EXPECT_EQ(result.exitCode, attempt.exitCode) << result;
    EXPECT_NE(result.err.find(attempt.message), std::string::npos) << result;
    ExpectNothingLeft();
  }
}

TEST_P(RemuxTest, BadInputsLeaveNothingBehind) {
  const MovieFile movie = BuildMovie(SmallMovie());
  Movie withoutDescriptions = SmallMovie();
  for (TestSample& sample : withoutDescriptions.tracks[0].samples) sample.description = 9;
  const struct {
    Bytes bytes;
    std::string message;
  } attempts[] = {
      {Bytes().Text("no movie at all, but long enough"), "kQiroK7MError"},
      {Bytes(), "kQiroK7MErrorNoMovieBox (6)"},
      {Cut(movie.bytes, movie.bytes.Size() - 10), "kQiroK7MErrorSampleDataShort (1030)"},
      {BuildMovie(withoutDescriptions).bytes, "track 1: a sample has no description"},
  };
  for (const auto& attempt : attempts) {
    const std::string clip = folder_.Write("clip.mp4", attempt.bytes);
    const RunResult result = Remux({clip, Output()});
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_NE(result.err.find(attempt.message), std::string::npos) << result;
    ExpectNothingLeft();
  }
  EXPECT_EQ(Remux({folder_.Path("none.mp4"), Output()}).exitCode, 1);
}

TEST_P(RemuxTest, CommandLinesThatMakeNoSenseAreUsageErrors) {
  const std::vector<std::vector<std::string>> attempts = {{"--edits=drop"},
                                                          {"--edits"},
                                                          {"--metadata"},
                                                          {"--no-metadata", "--metadata", "x"},
                                                          {"third"}};
  for (const auto& options : attempts) {
    const RunResult result = Run(options);
    EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(options) << "\n" << result;
    ExpectNothingLeft();
  }
  EXPECT_EQ(Remux({Clip()}).exitCode, 2);
}

TEST_P(RemuxTest, MetadataIsKeptReplacedOrDropped) {
  Movie movie = SmallMovie();
  movie.atEnd = MetadataBox(Bytes().Text("<own/>"));
  const std::string clip = folder_.Write("clip.mp4", BuildMovie(movie).bytes);
  const std::string packet = folder_.Write("packet.xml", Bytes().Text("<other/>"));
  ASSERT_EQ(Remux({clip, Output()}).exitCode, 0);
  EXPECT_EQ(MetadataOf(Output()), "<own/>");
  ASSERT_EQ(Remux({clip, Output(), "--force", "--metadata", packet}).exitCode, 0);
  EXPECT_EQ(MetadataOf(Output()), "<other/>");
  ASSERT_EQ(Remux({clip, Output(), "--force", "--no-metadata"}).exitCode, 0);
  EXPECT_EQ(MetadataOf(Output()), "");
}

TEST_P(RemuxTest, AMetadataFileThatCannotBeUsedIsAFailure) {
  const std::string missing = folder_.Path("none.xml");
  const RunResult result = Run({"--metadata", missing});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "k7m: " + missing + ": No such file or directory\n");
  ExpectNothingLeft();
  const std::string large = folder_.Write("large.xml", Bytes());
  ASSERT_EQ(truncate(large.c_str(), 0x4000001), 0);
  const RunResult tooLarge = Run({"--metadata", large});
  EXPECT_EQ(tooLarge.exitCode, 1);
  EXPECT_NE(tooLarge.err.find("kQiroK7MErrorMetadataTooLarge (1286)"), std::string::npos);
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4", "large.xml"}));
}

TEST_P(RemuxTest, ACopyThatGrowsTooLargeIsNotLeftHalfWritten) {
  Clip();
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  rlimit small = usual;
  small.rlim_cur = 2048;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const RunResult result = Remux({folder_.Path("clip.mp4"), Output()});
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.err, "k7m: " + Output() + ": File too large\n");
  ExpectNothingLeft();
}

TEST_P(RemuxTest, AFullDiskIsAFailureAndNoHalfFile) {
  Movie movie = SmallMovie();
  movie.tracks[1].samples = SomeSamples(400);
  const std::string clip = folder_.Write("clip.mp4", BuildMovie(movie).bytes);
  const std::string disk = folder_.Path("disk");
  ASSERT_EQ(mkdir(disk.c_str(), 0700), 0);
  if (mount("k7m-test", disk.c_str(), "tmpfs", 0, "size=16k") != 0) {
    ASSERT_NE(geteuid(), 0u) << "cannot mount a small file system";
    GTEST_SKIP() << "only root can mount a small file system";
  }
  const RunResult result = Remux({clip, disk + "/copy.mp4"});
  const bool isEmpty = std::filesystem::is_empty(disk);
  EXPECT_EQ(umount(disk.c_str()), 0);
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.err, "k7m: " + disk + "/copy.mp4: No space left on device\n");
  EXPECT_TRUE(isEmpty);
}

TEST_P(RemuxTest, BeingEndedHalfWayLeavesNoOutput) {
  // A terabyte of holes: long enough to be ended in the middle.
  Movie movie{.tracks = {Track{.handler = "soun", .samples = SomeSamples(1)}}};
  movie.isMovieBoxLast = true;
  constexpr uint32_t kCount = 1000000;
  auto& replace = movie.tracks[0].replace;
  replace["stsz"] =
      FullBox("stsz", 0, 0, Stsz{.constantSize = 65536, .sizes = {}, .count = kCount});
  replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{kCount, 1}}});
  replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, kCount, 1}}});
  const std::string clip = folder_.Write("clip.mp4", BuildMovie(movie).bytes);
  ASSERT_EQ(truncate(clip.c_str(), 1ll << 40), 0);
  for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP, SIGKILL}) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t process = StartK7m(CommandLine({clip, Output()}), nowhere, nowhere);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (folder_.Names().size() < 2 && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(folder_.Names().size(), 2u) << "no temporary file appeared";
    kill(process, signalNumber);
    EXPECT_EQ(WaitFor(process), 128 + signalNumber);
    close(nowhere);
    EXPECT_FALSE(std::filesystem::exists(Output()));
    if (signalNumber != SIGKILL) ExpectNothingLeft();  // Nobody can clean up after that one.
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, RemuxTest, testing::Values("", "--fragmented"),
                         [](const auto& form) {
                           return std::string(*form.param == '\0' ? "plain" : "fragmented");
                         });

}  // namespace
}  // namespace k7mtest
