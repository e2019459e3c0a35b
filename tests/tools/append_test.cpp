// k7m append: what a recording has after it was continued, and when, and what cannot be put
// together.
#include <gtest/gtest.h>

#include "decoded_streams.h"
#include "document_content.h"
#include "reader/media_files.h"
#include "recording.h"
#include "run_program.h"
#include "small_movie.h"
#include "support/opened_k7r_writer.h"

namespace k7mtest {
namespace {

// 400 ms: ten pictures, every second one a key picture, and twenty sounds.
Movie ShortMovie() {
  Movie movie{.tracks = {Track{.samples = SomeSamples(10, 40)},
                         Track{.handler = "soun", .samples = SomeSamples(20, 20, 7)}}};
  for (size_t i = 0; i < 10; ++i) movie.tracks[0].samples[i].isSync = i % 2 == 0;
  return movie;
}

std::vector<Bytes> BytesOf(const std::vector<RecordedFragment>& fragments) {
  std::vector<Bytes> all;
  for (const RecordedFragment& fragment : fragments) all.push_back(fragment.bytes);
  return all;
}

class AppendTest : public testing::Test {
 protected:
  // Five fragments.
  void Record(const Bytes& clip) {
    const RunResult result =
        RunK7m({"fragment", folder_.Write("clip.mp4", clip), path_, "--duration", "0.08"});
    ASSERT_EQ(result.exitCode, 0) << result;
  }
  RunResult AppendFile(const std::string& input, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"append", path_, input});
    return RunK7m(options);
  }
  RunResult Append(const Bytes& more, const std::vector<std::string>& options = {}) const {
    return AppendFile(folder_.Write("more.mp4", more), options);
  }
  void ExpectRefused(const Bytes& more, const std::string& problem) const {
    const Bytes before = ReadBytes(path_);
    const RunResult result = Append(more);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "k7m: " + folder_.Path("more.mp4") + ": " + problem + "\n");
    EXPECT_TRUE(ReadBytes(path_) == before);
  }
  static DocumentContent Read(const std::string& path, Samples which = Samples::kMedia) {
    QiroK7MError error = 0;
    const std::optional<DocumentContent> content = ReadContent(path, &error, which);
    if (content) return *content;
    ADD_FAILURE() << path << ": error " << error;
    return {};
  }
  // Of the presentation.
  std::vector<uint64_t> TimesOf(size_t track) const {
    std::vector<uint64_t> times;
    const DocumentContent content = Read(path_, Samples::kPresented);
    for (const SampleContent& sample : content.tracks[track].samples) {
      if ((sample.info.flags & 0xFF) != 2) times.push_back(sample.info.timeStamp);
    }
    return times;
  }
  static std::vector<uint64_t> Steps(size_t count, uint64_t step, uint64_t begin = 0) {
    std::vector<uint64_t> times;
    for (size_t i = 0; i < count; ++i) times.push_back(begin + i * step);
    return times;
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("live.k7r");
};

TEST_F(AppendTest, EveryClipFollowsItself) {
  for (const std::string& clip : DataFiles()) {
    SCOPED_TRACE(clip);
    ASSERT_EQ(RunK7m({"fragment", clip, path_, "--duration", "0.5", "--force"}).exitCode, 0);
    const std::vector<Bytes> before = BytesOf(FragmentsOf(ReadBytes(path_)));
    const DocumentContent first = Read(path_);
    for (int i = 0; i < 3; ++i) {
      const RunResult result = AppendFile(clip);
      ASSERT_EQ(result.exitCode, 0) << result;
      EXPECT_EQ(result.out + result.err, "");
    }
    const std::vector<Bytes> after = BytesOf(FragmentsOf(ReadBytes(path_)));
    EXPECT_GE(after.size(), before.size() + 3);
    for (size_t i = 0; i < before.size(); ++i) EXPECT_TRUE(after[i] == before[i]) << i;
    const DocumentContent copy = Read(path_);
    ASSERT_EQ(copy.tracks.size(), first.tracks.size());
    for (size_t i = 0; i < copy.tracks.size(); ++i) {
      const std::vector<SampleContent>& once = first.tracks[i].samples;
      ASSERT_EQ(copy.tracks[i].samples.size(), 4 * once.size());
      // Where sound waits for pictures, rounding may have hint samples change places.
      if (i + 1 == copy.tracks.size()) continue;
      for (size_t j = 0; j < 4 * once.size(); ++j) {
        const SampleContent& sample = copy.tracks[i].samples[j];
        const SampleContent& expected = once[j % once.size()];
        ASSERT_EQ(sample.data, expected.data);
        ASSERT_EQ(sample.description, expected.description);
        ASSERT_EQ(sample.info.flags, expected.info.flags);
        ASSERT_EQ(sample.info.compositionOffset, expected.info.compositionOffset);
      }
    }
    EXPECT_NEAR(static_cast<double>(copy.info.duration),
                4.0 * static_cast<double>(first.info.duration), 4);
    const auto packets = HashStreams(path_, Hashing::kPackets);
    ASSERT_TRUE(packets);
    for (size_t i = 1; i <= after.size(); ++i) {
      ASSERT_EQ(
          RunK7m({"query", path_, "--fragment", std::to_string(i), "-o", "/dev/null"}).exitCode, 0);
    }
  }
}

TEST_F(AppendTest, TimesGoOnWhereTheRecordingEnds) {
  Record(BuildMovie(ShortMovie()).bytes);
  ASSERT_EQ(Append(BuildMovie(ShortMovie()).bytes).exitCode, 0);
  ASSERT_EQ(Append(BuildMovie(ShortMovie()).bytes).exitCode, 0);
  EXPECT_EQ(TimesOf(0), Steps(30, 40));
  EXPECT_EQ(TimesOf(1), Steps(60, 20));
  const DocumentContent copy = Read(path_);
  EXPECT_EQ(copy.info.duration, 1200u);
  for (const TrackContent& track : copy.tracks) EXPECT_EQ(track.edits.size(), 1u);
}

TEST_F(AppendTest, ATrackThatEndedEarlierWaits) {
  Movie movie = ShortMovie();
  movie.tracks[1].samples.resize(10);
  const Bytes file = BuildMovie(movie).bytes;
  Record(file);
  ASSERT_EQ(Append(file).exitCode, 0);
  EXPECT_EQ(TimesOf(0), Steps(20, 40));
  std::vector<uint64_t> sounds = Steps(10, 20);
  for (const uint64_t time : Steps(10, 20, 400)) sounds.push_back(time);
  EXPECT_EQ(TimesOf(1), sounds);
}

TEST_F(AppendTest, ScalesThatDoNotDivideEachOtherStayInOrder) {
  Movie movie = ShortMovie();
  movie.tracks[0].timeScale = 30000;
  for (TestSample& sample : movie.tracks[0].samples) sample.delta = 1001;
  movie.tracks[1].timeScale = 44100;
  for (TestSample& sample : movie.tracks[1].samples) sample.delta = 1024;
  const Bytes file = BuildMovie(movie).bytes;
  Record(file);
  for (int i = 0; i < 12; ++i) {
    const RunResult result = Append(file);
    ASSERT_EQ(result.exitCode, 0) << result;
  }
  EXPECT_EQ(Read(path_).tracks[0].samples.size(), 130u);
  EXPECT_EQ(Read(path_).tracks[1].samples.size(), 260u);
}

TEST_F(AppendTest, FragmentsBehindTheOffsetAreCutOff) {
  Record(BuildMovie(ShortMovie()).bytes);
  const std::vector<RecordedFragment> before = FragmentsOf(ReadBytes(path_));
  const size_t kept = before[2].offset;
  const size_t cut = ReadBytes(path_).Size() - before[3].offset;
  const RunResult result =
      Append(BuildMovie(ShortMovie()).bytes, {"--keep-until", std::to_string(kept)});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.out, path_ + ": " + std::to_string(cut) +
                            " bytes cut off; the last fragment begins at byte " +
                            std::to_string(kept) + "\n");
  const std::vector<RecordedFragment> after = FragmentsOf(ReadBytes(path_));
  ASSERT_EQ(after.size(), 4u);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(after[i].bytes, before[i].bytes);
  std::vector<uint64_t> expected = Steps(6, 40);
  for (const uint64_t time : Steps(10, 40, 240)) expected.push_back(time);
  EXPECT_EQ(TimesOf(0), expected);
  EXPECT_EQ(Append(BuildMovie(ShortMovie()).bytes, {"--keep-until", "0"}).exitCode, 0);
  EXPECT_EQ(TimesOf(0), Steps(10, 40));
}

TEST_F(AppendTest, WhatAWriterDidNotFinishIsCutOff) {
  const Bytes clip = BuildMovie(ShortMovie()).bytes;
  Record(clip);
  const Bytes whole = ReadBytes(path_);
  const size_t end = FragmentsOf(whole)[4].offset;
  Bytes expected;
  for (size_t size = end; size < whole.Size(); size += 13) {
    folder_.Write("live.k7r", Cut(whole, size));
    const RunResult result = Append(clip);
    ASSERT_EQ(result.exitCode, 0) << result;
    EXPECT_EQ(result.out.empty(), size == end);
    if (size == end) expected = ReadBytes(path_);
    ASSERT_TRUE(ReadBytes(path_) == expected) << size;
  }
  EXPECT_EQ(TimesOf(0), Steps(18, 40));
}

TEST_F(AppendTest, TheTimeOriginOfTheRecordingIsKept) {
  OpenedK7RWriter writer;
  QiroK7MTrack* video = writer.AddDescribedTrack({.timeScale = 600, .gapCount = 5});
  QiroK7MTrack* hint = writer.AddDescribedHintTrack({video}, 12345);
  writer.StartFragment();
  for (uint64_t time = 0; time < 3; ++time) {
    const NewSample sample{.time = 20000 + 100 * time, .data = Pattern(9), .flags = 1};
    writer.AddHint(hint, video, sample, {0, 9}, true);
  }
  folder_.Write("live.k7r", writer.Finish());
  const std::string more = folder_.Path("more.mp4");
  ASSERT_EQ(RunK7m({"remux", path_, more}).exitCode, 0);
  const std::vector<uint64_t> first = TimesOf(0);
  const RunResult result = AppendFile(more);
  ASSERT_EQ(result.exitCode, 0) << result;
  const std::vector<uint64_t> times = TimesOf(0);
  ASSERT_EQ(times.size(), 6u);
  EXPECT_EQ(std::vector<uint64_t>(times.begin(), times.begin() + 3), first);
  EXPECT_GT(times[3], first[2]);
  EXPECT_LE(times[3], first[2] + 110);
  EXPECT_EQ(times[5] - times[3], 120u);
}

TEST_F(AppendTest, TracksThatDoNotGoTogetherAreRefused) {
  Record(BuildMovie(ShortMovie()).bytes);
  Movie scale = ShortMovie();
  scale.tracks[1].timeScale = 500;
  ExpectRefused(BuildMovie(scale).bytes,
                "track 2: its time scale is 500, that of track 2 of " + path_ + " is 1000");
  Movie coding = ShortMovie();
  coding.tracks[0].descriptions = {VideoEntry("hvc1", {.codecHeader = SecondCodecHeader()})};
  ExpectRefused(BuildMovie(coding).bytes,
                "track 1: its description 1 (hvc1) is none of track 1 of " + path_);
  Movie third = ShortMovie();
  third.tracks.push_back(third.tracks[1]);
  ExpectRefused(BuildMovie(third).bytes, "track 3: " + path_ + " has no such track of type 'soun'");
}

TEST_F(AppendTest, ATrackWithNothingToGoOnWithIsNamed) {
  Record(BuildMovie(ShortMovie()).bytes);
  Movie silent = ShortMovie();
  silent.tracks.resize(1);
  const RunResult result = Append(BuildMovie(silent).bytes);
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_EQ(result.err, "k7m: " + path_ + ": track 2: " + folder_.Path("more.mp4") +
                            " has nothing to go on with\n");
  EXPECT_EQ(TimesOf(0), Steps(20, 40));
  EXPECT_EQ(TimesOf(1), Steps(20, 20));
}

TEST_F(AppendTest, OnlyRecordingsAreContinued) {
  const std::string clip = folder_.Write("clip.mp4", SmallFile());
  const std::string plain = folder_.Write("plain.mp4", SmallFile());
  const RunResult result = RunK7m({"append", plain, clip});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.err, "k7m: " + plain + ": no K7R file: it has no hint track\n");
  EXPECT_EQ(ReadBytes(plain), SmallFile());
}

TEST_F(AppendTest, ARecordingDoesNotFollowItself) {
  Record(BuildMovie(ShortMovie()).bytes);
  const Bytes before = ReadBytes(path_);
  const RunResult result = AppendFile(path_);
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.err, "k7m: " + path_ + ": the output would overwrite the input\n");
  EXPECT_TRUE(ReadBytes(path_) == before);
}

TEST_F(AppendTest, UsageErrorsAndHelp) {
  Record(BuildMovie(ShortMovie()).bytes);
  const std::string clip = folder_.Path("clip.mp4");
  EXPECT_EQ(RunK7m({"append", path_}).exitCode, 2);
  for (const char* offset : {"-1", "12x", "", "99999999999999999999"}) {
    EXPECT_EQ(AppendFile(clip, {"--keep-until", offset}).exitCode, 2) << offset;
  }
  EXPECT_EQ(AppendFile(clip, {"--duration", "0"}).exitCode, 2);
  const RunResult help = RunK7m({"append", "--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("Example:\n  k7m append live.k7r more.mp4"), std::string::npos);
}

}  // namespace
}  // namespace k7mtest
