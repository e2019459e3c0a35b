// The example recorder keeps every fragment that it wrote whole, however it ends.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <random>

#include "example_runs.h"

namespace k7mtest {
namespace {

namespace fs = std::filesystem;

class RecordLiveTest : public ExampleRuns {};

// The numbers of the frames of a recording, which are the values of their bytes.
std::vector<int> FramesOf(const std::string& path) {
  const std::string pictures =
      Decode(path, "-map 0:v -vsync passthrough -pix_fmt rgb24 -f rawvideo");
  constexpr size_t kFrame = 16 * 16 * 3;
  EXPECT_EQ(pictures.size() % kFrame, 0u);
  std::vector<int> frames;
  for (size_t at = 0; at < pictures.size(); at += kFrame) {
    EXPECT_EQ(pictures.substr(at, kFrame), std::string(kFrame, pictures[at]));
    frames.push_back(static_cast<uint8_t>(pictures[at]));
  }
  return frames;
}

std::vector<int> FirstFrames(size_t count) {
  std::vector<int> frames(count);
  for (size_t i = 0; i < count; ++i) frames[i] = static_cast<int>(i % 256);
  return frames;
}

/// Starts recording, and kills it after some time.
void RecordAndKill(const std::string& recording, unsigned microseconds) {
  std::string program = K7M_RECORD_LIVE;
  std::string file = recording;
  std::string count = "0";
  std::string milliseconds = "1";
  char* arguments[] = {program.data(), file.data(), count.data(), milliseconds.data(), nullptr};
  pid_t process = 0;
  ASSERT_EQ(posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ), 0);
  usleep(microseconds);
  ASSERT_EQ(kill(process, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(waitpid(process, &status, 0), process);
  ASSERT_TRUE(WIFSIGNALED(status)) << "ended by itself, with " << WEXITSTATUS(status);
}

/// The ends of the complete fragments in a recording: of every 'mdat' behind 'afra' and 'moof'.
std::vector<size_t> FragmentEnds(const std::string& file) {
  std::vector<size_t> ends;
  std::string codes;
  for (size_t at = 0; at + 16 <= file.size();) {
    const auto number = [&file](size_t offset, size_t width) {
      uint64_t value = 0;
      for (size_t i = 0; i < width; ++i) value = value << 8 | uint8_t(file[offset + i]);
      return value;
    };
    const uint64_t size = number(at, 4) == 1 ? number(at + 8, 8) : number(at, 4);
    if (size < 8 || size > file.size() - at) break;
    codes += file.substr(at + 4, 4);
    at += size;
    if (codes.ends_with("aframoofmdat")) ends.push_back(at);
  }
  return ends;
}

std::string ContentOf(const std::string& path) {
  if (!fs::exists(path)) return {};
  std::string content(fs::file_size(path), '\0');
  std::ifstream(path, std::ios::binary)
      .read(content.data(), static_cast<std::streamsize>(content.size()));
  return content;
}

TEST_F(RecordLiveTest, GoesOnWhereItEnded) {
  const std::string recording = Path("live.k7r");
  for (size_t times = 1; times <= 3; ++times) {
    ASSERT_TRUE(Run(K7M_RECORD_LIVE, {recording, "2", "0"}));
    EXPECT_EQ(FramesOf(recording), FirstFrames(times * 2 * 25));
  }
}

TEST_F(RecordLiveTest, MayBeKilledAtAnyMoment) {
  const std::string recording = Path("live.k7r");
  const std::string killed = std::string("timeout -s KILL ");
  size_t frameCount = 0;
  for (const char* seconds : {"0.002", "0.05", "0.11", "0.2", "0.3"}) {
    EXPECT_FALSE(RunCommand(killed + seconds + " " + Quoted(K7M_RECORD_LIVE) + " " +
                            Quoted(recording) + " 0 3 2>&1"));
    ASSERT_TRUE(Run(K7M_RECORD_LIVE, {recording, "1", "0"}));
    const std::vector<int> frames = FramesOf(recording);
    EXPECT_EQ(frames, FirstFrames(frames.size()));
    EXPECT_EQ(frames.size() % 25, 0u);
    EXPECT_GE(frames.size(), frameCount + 25);
    frameCount = frames.size();
  }
  EXPECT_GT(frameCount, 5 * 25u);
}

TEST_F(RecordLiveTest, KilledAtRandomMomentsItLosesNoFragment) {
  constexpr int kKills = 200;
  const std::string recording = Path("live.k7r");
  // About twice as long as it takes to begin and record one fragment.
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(Run(K7M_RECORD_LIVE, {Path("one.k7r"), "1", "0"}));
  const auto once = std::chrono::steady_clock::now() - begin;
  const auto longest = std::chrono::duration_cast<std::chrono::microseconds>(once).count() * 2;
  std::mt19937 random(7);
  std::string before;
  size_t grown = 0;
  for (int i = 0; i < kKills; ++i) {
    ASSERT_NO_FATAL_FAILURE(
        RecordAndKill(recording, static_cast<unsigned>(random() % static_cast<uint64_t>(longest))));
    const std::string now = ContentOf(recording);
    const std::vector<size_t> kept = FragmentEnds(before);
    const std::vector<size_t> ends = FragmentEnds(now);
    ASSERT_GE(ends.size(), kept.size()) << "after kill " << i;
    if (!kept.empty()) {
      // Only the movie box in front of the fragments may change.
      const size_t first = before.find("afra") - 4;
      ASSERT_EQ(now.find("afra") - 4, first);
      ASSERT_EQ(now.compare(first, kept.back() - first, before, first, kept.back() - first), 0)
          << "after kill " << i;
    }
    if (ends.size() > kept.size()) ++grown;
    before = now;
  }
  EXPECT_GT(grown, 0u) << "all were killed before they had recorded anything";
  ASSERT_TRUE(Run(K7M_RECORD_LIVE, {recording, "1", "0"}));
  const size_t fragmentCount = FragmentEnds(ContentOf(recording)).size();
  const std::vector<int> frames = FramesOf(recording);
  EXPECT_EQ(frames.size(), fragmentCount * 25);
  EXPECT_EQ(frames, FirstFrames(frames.size()));
}

TEST_F(RecordLiveTest, UnusableFilesAreFailures) {
  EXPECT_FALSE(Run(K7M_RECORD_LIVE, {}));
  EXPECT_FALSE(Run(K7M_RECORD_LIVE, {Path("no/such/live.k7r")}));
  const std::string text = Path("text");
  std::ofstream(text) << "This is no recording, and must not become one.";
  EXPECT_FALSE(Run(K7M_RECORD_LIVE, {text, "1", "0"}));
  EXPECT_EQ(fs::file_size(text), 46u);
}

}  // namespace
}  // namespace k7mtest
