// What a copy has in common with its source: everything, read back through the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "document_content.h"
#include "reader/media_files.h"
#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

// Sources that cannot be copied, with the message. All but one are cut: their tables and fragments
// promise samples that are not there. In the other one the times of a track go back.
const std::map<std::string, std::string> kRefused = {
    {"mp4-atom/src__test__bbb.mp4", "kQiroK7MErrorDecodeTimeBackwards (1280)"},
    {"mp4-atom/src__test__esds.mp4", "more sample data than the file holds"},
    {"mp4-atom/src__test__h264.mp4", "more sample data than the file holds"},
    {"mp4-atom/src__test__hevc.mp4", "more sample data than the file holds"},
    {"mp4-atom/src__test__vp9.mp4", "more sample data than the file holds"},
    {"go-mp4/testdata__sample_qt.mp4", "more sample data than the file holds"},
    {"mp4ff/mp4__testdata__init_prog.mp4", "more sample data than the file holds"},
};

class CopyTest : public testing::Test {
 protected:
  // Copies and returns what the program said.
  RunResult Copy(const std::string& source, const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {"remux", source, Output(), "--force"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return RunK7m(arguments);
  }
  std::string Output() const { return folder_.Path("copy.mp4"); }
  DocumentContent Read(const std::string& path, Samples which = Samples::kMedia) {
    QiroK7MError error = 0;
    const std::optional<DocumentContent> content = ReadContent(path, &error, which);
    if (content) return *content;
    ADD_FAILURE() << path << ": error " << error;
    return {};
  }
  // The tracks stand to each other as in the source, and the first one starts at 0.
  void ExpectInStep(const DocumentContent& source, const DocumentContent& copy) {
    double earliest = 1e9;
    double least = 1e9;
    double most = -1e9;
    for (size_t i = 0; i < copy.tracks.size(); ++i) {
      if (copy.tracks[i].samples.empty()) continue;
      const double start = copy.tracks[i].Start(copy.info.timeScale);
      const double moved = start - source.tracks[i].Start(source.info.timeScale);
      earliest = std::min(earliest, start);
      least = std::min(least, moved);
      most = std::max(most, moved);
    }
    if (earliest > 1e8) return;  // No track has samples.
    const double tick = 1.0 / source.info.timeScale + 1e-9;
    EXPECT_NEAR(earliest, 0, 1e-9);
    EXPECT_LE(most - least, tick);
  }
  // Whether the file could be copied, into a plain document and into a fragmented one.
  bool CheckFile(const std::string& path) {
    const bool isCopied = CheckFile(path, {});
    EXPECT_EQ(CheckFile(path, {"--fragmented"}), isCopied);
    return isCopied;
  }
  bool CheckFile(const std::string& path, const std::vector<std::string>& options) {
    SCOPED_TRACE(path + " " + testing::PrintToString(options));
    QiroK7MError error = 0;
    const std::optional<DocumentContent> source = ReadContent(path, &error);
    const RunResult result = Copy(path, options);
    std::string refusal = error != 0 ? "(" + std::to_string(error) + ")" : "";
    const auto known = kRefused.find(ShortName(path));
    if (known != kRefused.end()) refusal = known->second;
    EXPECT_EQ(result.exitCode, refusal.empty() ? 0 : 1) << result;
    EXPECT_NE(result.err.find(refusal), std::string::npos) << result;
    if (!refusal.empty() || result.exitCode != 0) return false;
    const DocumentContent copy = Read(Output());
    EXPECT_EQ(copy.info.isFragmented, options.empty() ? 0u : 1u);
    EXPECT_EQ(CopyDifference(*source, copy), "");
    ExpectInStep(*source, copy);
    CheckCopyOfCopy(copy, {});
    CheckCopyOfCopy(copy, {"--fragmented=0.3"});
    return true;
  }
  // Nothing drifts when a copy is copied again.
  void CheckCopyOfCopy(const DocumentContent& copy, const std::vector<std::string>& options) {
    const std::string path = folder_.Path("again.mp4");
    std::vector<std::string> arguments = {"remux", Output(), path, "--force"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(RunK7m(arguments).exitCode, 0);
    const DocumentContent again = Read(path);
    EXPECT_EQ(CopyDifference(copy, again), "");
    EXPECT_EQ(again.info.duration, copy.info.duration);
    for (size_t i = 0; i < std::min(copy.tracks.size(), again.tracks.size()); ++i) {
      EXPECT_EQ(again.tracks[i].Start(copy.info.timeScale),
                copy.tracks[i].Start(copy.info.timeScale));
      EXPECT_EQ(again.tracks[i].info.duration, copy.tracks[i].info.duration);
    }
  }
  TemporaryFolder folder_;
};

TEST_F(CopyTest, OwnFilesAreCopiedCompletely) {
  int copied = 0;
  for (const std::string& path : DataFiles()) copied += CheckFile(path) ? 1 : 0;
  EXPECT_EQ(copied, 8);
}

TEST_F(CopyTest, ForeignFilesAreCopiedCompletely) {
  if (!HasForeignFolder()) GTEST_SKIP() << "there is no folder " << ForeignFolder();
  int copied = 0;
  for (const std::string& path : ForeignFiles()) copied += CheckFile(path) ? 1 : 0;
  RecordProperty("copied", copied);
  EXPECT_GE(copied, 30);
}

TEST_F(CopyTest, BuiltMovieIsCopiedCompletely) {
  Movie movie = SmallMovie();
  movie.atEnd = MetadataBox(Bytes().Text("<xml/>"));
  EXPECT_TRUE(CheckFile(folder_.Write("clip.mp4", BuildMovie(movie).bytes)));
}

TEST_F(CopyTest, ALateTrackStaysLate) {
  Movie movie = SmallMovie();
  movie.tracks[1].edits = {{.segmentDuration = 70, .mediaTime = -1},
                           {.segmentDuration = 200, .mediaTime = 0}};
  EXPECT_TRUE(CheckFile(folder_.Write("clip.mp4", BuildMovie(movie).bytes)));
  const DocumentContent copy = Read(Output());
  EXPECT_EQ(copy.tracks[0].Start(1000), 0);
  EXPECT_EQ(copy.tracks[1].Start(1000), 0.07);
}

TEST_F(CopyTest, ASkippedBeginMakesTheOtherTracksWait) {
  Movie movie = SmallMovie();
  movie.tracks[0].edits = {{.segmentDuration = 120, .mediaTime = 80}};
  EXPECT_TRUE(CheckFile(folder_.Write("clip.mp4", BuildMovie(movie).bytes)));
  const DocumentContent copy = Read(Output());
  EXPECT_EQ(copy.tracks[0].Start(1000), 0);
  EXPECT_EQ(copy.tracks[1].Start(1000), 0.08);
}

TEST_F(CopyTest, AWaitOfAllTracksAtTheBeginGoes) {
  Movie movie = SmallMovie();
  movie.tracks[0].edits = {{.segmentDuration = 50, .mediaTime = -1},
                           {.segmentDuration = 200, .mediaTime = 0}};
  movie.tracks[1].edits = {{.segmentDuration = 75, .mediaTime = -1},
                           {.segmentDuration = 200, .mediaTime = 0}};
  EXPECT_TRUE(CheckFile(folder_.Write("clip.mp4", BuildMovie(movie).bytes)));
  EXPECT_EQ(Read(Output()).tracks[1].Start(1000), 0.025);
}

TEST_F(CopyTest, InnerGapsStayGaps) {
  Movie movie = SmallMovie();
  movie.tracks[0].edits = {{.segmentDuration = 80, .mediaTime = 0},
                           {.segmentDuration = 300, .mediaTime = -1},
                           {.segmentDuration = 40, .mediaTime = 80},
                           {.segmentDuration = 500, .mediaTime = -1},
                           {.segmentDuration = 80, .mediaTime = 120}};
  movie.tracks[0].duration = 1000;
  EXPECT_TRUE(CheckFile(folder_.Write("clip.mp4", BuildMovie(movie).bytes)));
  const std::vector<QiroK7MEdit> edits = Read(Output()).tracks[0].edits;
  ASSERT_EQ(edits.size(), 5u);
  const std::pair<uint64_t, int64_t> expected[] = {
      {80, 0}, {300, -1}, {40, 80}, {500, -1}, {80, 120}};
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(std::make_pair(edits[i].segmentDuration, edits[i].mediaTime), expected[i]) << i;
  }
}

TEST_F(CopyTest, TheLastSampleKeepsItsTime) {
  const std::string clip = folder_.Write("clip.mp4", SmallFile());
  ASSERT_EQ(Copy(clip).exitCode, 0);
  const DocumentContent source = Read(clip);
  const DocumentContent copy = Read(Output());
  EXPECT_EQ(copy.info.duration, source.info.duration);
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(copy.tracks[i].info.duration, source.tracks[i].info.duration);
  }
}

TEST_F(CopyTest, AppliedEditsLeaveWhatTheyShow) {
  Movie movie = SmallMovie();
  movie.tracks[0].edits = {{.segmentDuration = 30, .mediaTime = -1},
                           {.segmentDuration = 80, .mediaTime = 80},
                           {.segmentDuration = 100, .mediaTime = -1},
                           {.segmentDuration = 40, .mediaTime = 0}};
  const std::string clip = folder_.Write("clip.mp4", BuildMovie(movie).bytes);
  const RunResult result = Copy(clip, {"--edits=apply"});
  ASSERT_EQ(result.exitCode, 0) << result;
  const DocumentContent copy = Read(Output(), Samples::kPresented);
  EXPECT_EQ(CopyDifference(Read(clip, Samples::kPresented), copy), "");
  ASSERT_EQ(copy.tracks[0].samples.size(), 5u);
  EXPECT_EQ(copy.tracks[0].samples[4].info.timeStamp, 210u);
  EXPECT_EQ(Read(Output()).tracks[0].samples.size(), 3u);
}

TEST_F(CopyTest, SamplesWithoutBytesAreLeftOutAndNamed) {
  Movie movie = SmallMovie();
  movie.tracks[1].samples[4].data = Bytes();
  const std::string clip = folder_.Write("clip.mp4", BuildMovie(movie).bytes);
  const RunResult result = Copy(clip);
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "k7m: " + clip + ": track 2: 1 samples without bytes are left out\n");
  EXPECT_EQ(CopyDifference(Read(clip), Read(Output())), "");
}

TEST_F(CopyTest, TracksAreInterleavedByHalfASecond) {
  Movie movie{.tracks = {Track{.samples = SomeSamples(75, 40)},
                         Track{.handler = "soun", .samples = SomeSamples(150, 20)}}};
  ASSERT_EQ(Copy(folder_.Write("clip.mp4", BuildMovie(movie).bytes)).exitCode, 0);
  const RunResult tree = RunK7m({"tree", Output()});
  const auto countOf = [&](const std::string& text) {
    size_t count = 0;
    for (size_t at = tree.out.find(text); at != std::string::npos;
         at = tree.out.find(text, at + 1)) {
      ++count;
    }
    return count;
  };
  // In 'stsc' and 'co64'. 3 s of video in runs of 13 samples (0.52 s) make 6 chunks. So would 3 s
  // of sound in runs of 25, but no video comes between the last two.
  EXPECT_EQ(countOf(".entries (6)"), 2u) << tree.out;
  EXPECT_EQ(countOf(".entries (5)"), 2u) << tree.out;
}

}  // namespace
}  // namespace k7mtest
