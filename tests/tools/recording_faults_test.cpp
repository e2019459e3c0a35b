// What stays of a recording when k7m append or k7m repair cannot go on.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "recording.h"
#include "run_program.h"
#include "support/movie_builder.h"

namespace k7mtest {
namespace {

using Milliseconds = std::chrono::milliseconds;

/// Pictures and sounds of 40 ms; every tenth picture is a key picture.
Bytes ClipOf(uint32_t count, size_t sampleSize) {
  Movie movie{.tracks = {Track{}, Track{.handler = "soun"}}};
  for (uint32_t i = 0; i < count; ++i) {
    for (uint32_t track = 0; track < 2; ++track) {
      movie.tracks[track].samples.push_back({.data = Pattern(sampleSize, 2 * i + track),
                                             .delta = 40,
                                             .isSync = track == 1 || i % 10 == 0});
    }
  }
  return BuildMovie(movie).bytes;
}

/// No file that the test or a program that it starts writes may be longer.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &usual_), 0);
    rlimit small = usual_;
    small.rlim_cur = bytes;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  }
  ~FileSizeLimit() { EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &usual_), 0); }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit usual_{};
};

/// A file system of a few KiB, if there may be one.
class SmallDisk {
 public:
  SmallDisk(const std::string& path, const std::string& size) : path_(path) {
    EXPECT_EQ(mkdir(path.c_str(), 0700), 0);
    isMounted_ = mount("k7m-test", path.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
    EXPECT_TRUE(isMounted_ || geteuid() != 0) << "cannot mount a small file system";
  }
  ~SmallDisk() {
    if (isMounted_) {
      EXPECT_EQ(umount(path_.c_str()), 0);
    }
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool IsMounted() const { return isMounted_; }
  std::string Path(const std::string& name) const { return path_ + "/" + name; }
  void Fill() const {
    std::ofstream file(Path("filler"), std::ios::binary);
    const std::string block(512, 'x');
    while (file.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
    }
  }

 private:
  std::string path_;
  bool isMounted_ = false;
};

class RecordingFaults : public testing::Test {
 protected:
  RecordingFaults() {
    const std::string clip = folder_.Write("clip.mp4", ClipOf(50, 20));
    EXPECT_EQ(RunK7m({"fragment", clip, path_, "--duration", "0.4"}).exitCode, 0);
    whole_ = ReadBytes(path_);
    fragments_ = FragmentsOf(whole_);
    EXPECT_EQ(fragments_.size(), 5u);
  }
  Bytes WithoutItsEnd() const { return Cut(whole_, whole_.Size() - 7); }
  /// What repairing makes of a recording without its end.
  Bytes Repaired() const {
    const std::string path = folder_.Write("repaired.k7r", WithoutItsEnd());
    EXPECT_EQ(RunK7m({"repair", path}).exitCode, 0);
    const Bytes repaired = ReadBytes(path);
    EXPECT_EQ(repaired.Size(), fragments_[4].offset);
    return repaired;
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("live.k7r");
  Bytes whole_;
  std::vector<RecordedFragment> fragments_;
};

TEST_F(RecordingFaults, AppendOnAFullDiskTakesBackWhatItAdded) {
  const SmallDisk disk(folder_.Path("disk"), "256k");
  if (!disk.IsMounted()) GTEST_SKIP() << "only root can mount a small file system";
  const std::string path = disk.Path("live.k7r");
  std::filesystem::copy_file(path_, path);
  const std::string more = folder_.Write("more.mp4", ClipOf(500, 400));
  for (int i = 0; i < 2; ++i) {
    const RunResult result = RunK7m({"append", path, more});
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_EQ(result.err, "k7m: " + path + ": No space left on device\n");
    EXPECT_TRUE(ReadBytes(path) == whole_);
  }
  disk.Fill();
  EXPECT_EQ(RunK7m({"append", path, more}).exitCode, 1);
  EXPECT_TRUE(ReadBytes(path) == whole_);
  EXPECT_EQ(RunK7m({"query", path, "--fragment", "5", "-o", "/dev/null"}).exitCode, 0);
}

TEST_F(RecordingFaults, AppendToAFileThatGrowsTooLargeTakesBackWhatItAdded) {
  const std::string more = folder_.Write("more.mp4", ClipOf(500, 400));
  const FileSizeLimit limit(300000);
  const RunResult result = RunK7m({"append", path_, more});
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.err, "k7m: " + path_ + ": File too large\n");
  EXPECT_TRUE(ReadBytes(path_) == whole_);
}

TEST_F(RecordingFaults, AppendOfAFileThatBreaksOffTakesBackWhatItAdded) {
  const Bytes clip = ClipOf(500, 400);
  const std::string more = folder_.Write("more.mp4", Cut(clip, clip.Size() - 1));
  const RunResult result = RunK7m({"append", path_, more});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.err.find(more + ": kQiroK7MErrorSampleDataShort (1030)"), std::string::npos)
      << result;
  EXPECT_TRUE(ReadBytes(path_) == whole_);
}

TEST_F(RecordingFaults, RepairNeedsNoSpace) {
  const SmallDisk disk(folder_.Path("disk"), "64k");
  if (!disk.IsMounted()) GTEST_SKIP() << "only root can mount a small file system";
  const std::string path = disk.Path("live.k7r");
  std::filesystem::copy_file(folder_.Write("cut.k7r", WithoutItsEnd()), path);
  disk.Fill();
  const RunResult result = RunK7m({"repair", path});
  EXPECT_EQ(result.exitCode, 0) << result;
  EXPECT_TRUE(ReadBytes(path) == Repaired());
}

TEST_F(RecordingFaults, WhatCannotBeWrittenAtAllStaysAsItIs) {
  folder_.Write("live.k7r", WithoutItsEnd());
  folder_.Write("more.mp4", ClipOf(10, 20));
  const RunOptions inFolder{.folder = folder_.Path("")};
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"repair", "live.k7r"}, {"append", "live.k7r", "more.mp4"}}) {
    const FileSizeLimit limit(60);  // The message fits, the movie box does not.
    const RunResult result = RunK7m(arguments, inFolder);
    EXPECT_EQ(result.exitCode, 1) << result;
    EXPECT_EQ(result.err, "k7m: live.k7r: File too large\n");
    EXPECT_TRUE(ReadBytes(path_) == WithoutItsEnd());
  }
}

/// Starts the program, waits for `isTime`, ends it with the signal, and gives its exit code.
template <class IsTime>
int EndedBy(int signalNumber, const std::vector<std::string>& arguments, IsTime isTime) {
  const auto nowhere = std::unique_ptr<FILE, int (*)(FILE*)>(std::tmpfile(), std::fclose);
  const pid_t process = StartK7m(arguments, fileno(nowhere.get()), fileno(nowhere.get()));
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!isTime() && std::chrono::steady_clock::now() < patience) {
    std::this_thread::sleep_for(Milliseconds(1));
  }
  kill(process, signalNumber);
  return WaitFor(process);
}

/// Each fragment must be the expected one. In the last one the durations that wait for the next
/// sample of their track may be others: four bytes in each of three tracks.
void ExpectFirstOf(const std::vector<RecordedFragment>& expected,
                   const std::vector<RecordedFragment>& fragments) {
  ASSERT_LE(fragments.size(), expected.size());
  for (size_t i = 0; i < fragments.size(); ++i) {
    const Bytes& bytes = fragments[i].bytes;
    ASSERT_EQ(bytes.Size(), expected[i].bytes.Size());
    size_t differences = 0;
    for (size_t at = 0; at < bytes.Size(); ++at) {
      differences += bytes.Data()[at] != expected[i].bytes.Data()[at] ? 1 : 0;
    }
    EXPECT_LE(differences, i + 1 == fragments.size() ? 12u : 0u) << "fragment " << i + 1;
  }
}

TEST_F(RecordingFaults, AnAppendThatIsEndedHalfWayLeavesCompleteFragments) {
  const std::string more = folder_.Write("more.mp4", ClipOf(4000, 4000));
  const std::string all = folder_.Write("all.k7r", whole_);
  ASSERT_EQ(RunK7m({"append", all, more}).exitCode, 0);
  const std::vector<RecordedFragment> expected = FragmentsOf(ReadBytes(all));
  for (const int signalNumber : {SIGTERM, SIGINT, SIGKILL}) {
    size_t count = 0;
    for (int attempt = 0; count == 0 && attempt < 20; ++attempt) {
      folder_.Write("live.k7r", whole_);
      const int code = EndedBy(signalNumber, {"append", path_, more},
                               [this] { return std::filesystem::file_size(path_) > 6000000; });
      if (code == 0) continue;  // It was too fast.
      EXPECT_EQ(code, 128 + signalNumber);
      const RunResult repaired = RunK7m({"repair", path_});
      ASSERT_EQ(repaired.exitCode, 0) << repaired;
      const std::vector<RecordedFragment> fragments = FragmentsOf(ReadBytes(path_));
      count = fragments.size();
      EXPECT_GT(count, fragments_.size());
      ExpectFirstOf(expected, fragments);
    }
    EXPECT_GT(count, 0u) << "never ended half way";
  }
}

TEST_F(RecordingFaults, ARepairThatIsEndedHalfWayCanBeMadeAgain) {
  Bytes boxes;
  for (int i = 0; i < 50000; ++i) boxes.Append(Box("free"));
  const Bytes broken = whole_ + boxes + Cut(fragments_[4].bytes, 50);
  for (const int signalNumber : {SIGTERM, SIGINT, SIGKILL}) {
    int endedCount = 0;
    for (const int delay : {0, 2, 5, 15, 40}) {
      folder_.Write("live.k7r", broken);
      const auto time = std::chrono::steady_clock::now() + Milliseconds(delay);
      const int code = EndedBy(signalNumber, {"repair", path_},
                               [time] { return std::chrono::steady_clock::now() >= time; });
      EXPECT_TRUE(code == 0 || code == 128 + signalNumber) << code;
      endedCount += code == 0 ? 0 : 1;
      ASSERT_EQ(RunK7m({"repair", path_}).exitCode, 0);
      EXPECT_TRUE(ReadBytes(path_) == whole_ + boxes);
    }
    EXPECT_GT(endedCount, 0);
  }
}

}  // namespace
}  // namespace k7mtest
