#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>

#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

class ExtractTest : public testing::Test {
 protected:
  std::string Clip(const Movie& movie) {
    return folder_.Write("clip.mp4", BuildMovie(movie).bytes);
  }
  // Extracts from the small movie to standard output.
  RunResult Run(const std::vector<std::string>& options) {
    return RunOn(Clip(SmallMovie()), options, "-");
  }
  static RunResult RunOn(const std::string& clip, const std::vector<std::string>& options,
                         const std::string& output) {
    std::vector<std::string> arguments = {"extract", clip, "-o", output};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return RunK7m(arguments);
  }
  static Bytes SampleBytes(const Movie& movie, size_t track) {
    Bytes bytes;
    for (const TestSample& sample : movie.tracks[track].samples) bytes.Append(sample.data);
    return bytes;
  }
  TemporaryFolder folder_;
};

TEST_F(ExtractTest, SamplesAreCopiedInOrder) {
  const std::string clip = Clip(SmallMovie());
  for (size_t track = 0; track < 2; ++track) {
    const std::string output = folder_.Path("out.bin");
    const RunResult result = RunOn(clip, {"--track", std::to_string(track + 1)}, output);
    EXPECT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(ReadBytes(output), SampleBytes(SmallMovie(), track));
  }
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4", "out.bin"}));
}

TEST_F(ExtractTest, EditsDoNotHideSamples) {
  Movie movie = SmallMovie();
  movie.tracks[0].edits = {{.segmentDuration = 40, .mediaTime = 80}};
  const RunResult result = RunOn(Clip(movie), {"--track", "1"}, "-");
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(Bytes().Text(result.out), SampleBytes(movie, 0));
}

TEST_F(ExtractTest, TheFirstCodecHeaderIsTheDefault) {
  Movie movie = SmallMovie();
  movie.tracks[0].descriptions[0] = VideoEntry("avc1", {.codecHeader = Bytes{9, 8, 7}});
  const std::string clip = Clip(movie);
  EXPECT_EQ(RunOn(clip, {"--track", "1", "--codec-header"}, "-").out, "\x09\x08\x07");
  const RunResult second =
      RunOn(clip, {"--track", "1", "--codec-header", "--description", "2"}, "-");
  EXPECT_EQ(second.exitCode, 0) << second;
  EXPECT_EQ(Bytes().Text(second.out), SecondCodecHeader());
}

TEST_F(ExtractTest, WhatIsNotThereIsRefused) {
  const struct {
    std::vector<std::string> options;
    std::string message;
  } attempts[] = {
      {{"--track", "3"}, "no track 3 (the file has 2)"},
      {{"--metadata"}, "no metadata packet"},
      {{"--track", "1", "--codec-header"}, "description 1 of track 1 has no codec header"},
      {{"--track", "1", "--codec-header", "--description", "3"},
       "track 1 has no description 3 (it has 2)"},
  };
  for (const auto& attempt : attempts) {
    const std::string output = folder_.Path("out.bin");
    const RunResult result = RunOn(Clip(SmallMovie()), attempt.options, output);
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_EQ(result.err, "k7m: " + folder_.Path("clip.mp4") + ": " + attempt.message + "\n");
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
  }
}

TEST_F(ExtractTest, MetadataIsCopied) {
  Movie movie = SmallMovie();
  movie.atEnd = MetadataBox(Bytes().Text("<xml/>"));
  const RunResult result = RunOn(Clip(movie), {"--metadata"}, "-");
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.out, "<xml/>");
}

TEST_F(ExtractTest, OptionsThatMakeNoSenseAreUsageErrors) {
  const std::vector<std::vector<std::string>> attempts = {
      {},
      {"--track", "0"},
      {"--codec-header"},
      {"--track", "1", "--metadata"},
      {"--track", "1", "--description", "1"},
      {"--track", "1", "--codec-header", "--description", "0"}};
  for (const auto& options : attempts) {
    const RunResult result = Run(options);
    EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(options) << "\n" << result;
    EXPECT_EQ(result.out, "");
  }
  for (const char* option : {"--track", "--description"}) {
    std::vector<std::string> numbers = {"--track", "1", "--codec-header"};
    numbers.insert(numbers.end(), {option, "0"});
    if (std::string(option) == "--track") numbers.erase(numbers.begin(), numbers.begin() + 2);
    const RunResult result = Run(numbers);
    EXPECT_NE(result.err.find(std::string(option) + ": they are counted from 1"), std::string::npos)
        << result;
  }
  const RunResult noOutput = RunK7m({"extract", Clip(SmallMovie()), "--track", "1"});
  EXPECT_EQ(noOutput.exitCode, 2) << noOutput;
}

TEST_F(ExtractTest, ASampleBehindTheEndLeavesTheOldOutputAlone) {
  const MovieFile movie = BuildMovie(SmallMovie());
  const std::string clip = folder_.Write("cut.mp4", Cut(movie.bytes, movie.bytes.Size() - 10));
  const std::string output = folder_.Write("out.bin", Bytes().Text("old"));
  const RunResult result = RunOn(clip, {"--track", "2"}, output);
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_NE(result.err.find("kQiroK7MErrorSampleDataShort (1030)"), std::string::npos) << result;
  EXPECT_EQ(ReadText(output), "old");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"cut.mp4", "out.bin"}));
}

TEST_F(ExtractTest, ASampleLargerThanTheFileTakesNoMemory) {
  Movie movie = SmallMovie();
  movie.tracks[1].replace["stsz"] =
      FullBox("stsz", 0, 0, Stsz{.constantSize = 0xFFFFFFFF, .sizes = {}, .count = 10});
  const RunResult result = RunOn(Clip(movie), {"--track", "2"}, "-");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_NE(result.err.find("kQiroK7MErrorSampleDataShort (1030)"), std::string::npos) << result;
}

TEST_F(ExtractTest, TheInputIsNeverOverwritten) {
  const std::string clip = Clip(SmallMovie());
  std::filesystem::create_symlink(clip, folder_.Path("link.mp4"));
  std::filesystem::create_hard_link(clip, folder_.Path("twin.mp4"));
  for (const std::string& output : {clip, folder_.Path("link.mp4"), folder_.Path("twin.mp4")}) {
    const RunResult result = RunOn(clip, {"--track", "1"}, output);
    EXPECT_EQ(result.exitCode, 2) << result;
    EXPECT_EQ(result.err, "k7m: " + output + ": the output would overwrite the input\n");
  }
  const RunResult appended =
      RunK7m({"extract", clip, "--track", "1", "-o", "-"}, {.stdoutPath = clip});
  EXPECT_EQ(appended.exitCode, 2) << appended;
  EXPECT_EQ(ReadBytes(clip), SmallFile());
}

TEST_F(ExtractTest, AnExistingOutputIsReplacedAndKeepsItsMode) {
  const std::string output = folder_.Write("out.bin", Bytes().Text("old"));
  ASSERT_EQ(chmod(output.c_str(), 0640), 0);
  std::filesystem::create_symlink("out.bin", folder_.Path("link.bin"));
  const RunResult result = RunOn(Clip(SmallMovie()), {"--track", "2"}, folder_.Path("link.bin"));
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_TRUE(std::filesystem::is_symlink(folder_.Path("link.bin")));
  EXPECT_EQ(ReadBytes(output), SampleBytes(SmallMovie(), 1));
  struct stat status {};
  ASSERT_EQ(stat(output.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(ExtractTest, AnOutputThatCannotBeWrittenShowsTheSystemsMessage) {
  const std::string clip = Clip(SmallMovie());
  const std::string missing = folder_.Path("no/such/folder/out.bin");
  EXPECT_EQ(RunOn(clip, {"--track", "1"}, missing).err,
            "k7m: " + missing + ": No such file or directory\n");
  const std::string self = folder_.Path("");
  const RunResult folder = RunOn(clip, {"--track", "1"}, self);
  EXPECT_EQ(folder.exitCode, 1);
  EXPECT_EQ(folder.err, "k7m: " + self + ": Is a directory\n");
}

TEST_F(ExtractTest, AnOutputThatGrowsTooLargeIsNotLeftHalfWritten) {
  Movie movie = SmallMovie();
  movie.tracks[1].samples = SomeSamples(200);
  const std::string clip = Clip(movie);
  const std::string output = folder_.Path("out.bin");
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  rlimit small = usual;
  small.rlim_cur = 8192;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const RunResult result = RunOn(clip, {"--track", "2"}, output);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &usual), 0);
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.err, "k7m: " + output + ": File too large\n");
  EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"clip.mp4"}));
}

TEST_F(ExtractTest, AFullDeviceIsAFailure) {
  const RunResult result = RunOn(Clip(SmallMovie()), {"--track", "1"}, "/dev/full");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "k7m: /dev/full: No space left on device\n");
}

}  // namespace
}  // namespace k7mtest
