// The progress bar, and what a signal leaves behind. Both need a command that works for long.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPatience = std::chrono::seconds(60);

// A sound track whose tables promise 100 million samples of the given size in one chunk.
Bytes EndlessFile(uint32_t sampleSize) {
  constexpr uint32_t kCount = 100000000;
  Movie movie{.tracks = {Track{.handler = "soun", .samples = SomeSamples(1)}}};
  movie.isMovieBoxLast = true;
  auto& replace = movie.tracks[0].replace;
  replace["stsz"] =
      FullBox("stsz", 0, 0, Stsz{.constantSize = sampleSize, .sizes = {}, .count = kCount});
  replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{kCount, 1}}});
  replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, kCount, 1}}});
  return BuildMovie(movie).bytes;
}

// What appears on a terminal until `wanted` does, or until the patience ends.
std::string ReadUntil(int terminal, const std::string& wanted) {
  std::string text;
  const auto end = Clock::now() + kPatience;
  while (text.find(wanted) == std::string::npos && Clock::now() < end) {
    pollfd ready = {terminal, POLLIN, 0};
    if (poll(&ready, 1, 1000) <= 0) continue;
    char buffer[1024];
    const ssize_t count = read(terminal, buffer, sizeof buffer);
    if (count <= 0) break;
    text.append(buffer, static_cast<size_t>(count));
  }
  return text;
}

TEST(Terminal, LongWorkShowsItsProgress) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("endless.mp4", EndlessFile(1));
  int outer = -1;
  int inner = -1;
  ASSERT_EQ(openpty(&outer, &inner, nullptr, nullptr, nullptr), 0);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const auto begin = Clock::now();
  const pid_t process = StartK7m({"samples", path, "--media"}, nowhere, inner);
  const std::string text = ReadUntil(outer, "%");
  const auto waited = Clock::now() - begin;
  kill(process, SIGKILL);
  WaitFor(process);
  EXPECT_NE(text.find("\r["), std::string::npos) << text;
  EXPECT_NE(text.find("%"), std::string::npos) << text;
  EXPECT_GE(waited, std::chrono::seconds(1));
  close(outer);
  close(inner);
  close(nowhere);
}

TEST(Terminal, ShortWorkShowsNothing) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("small.mp4", SmallFile());
  int outer = -1;
  int inner = -1;
  ASSERT_EQ(openpty(&outer, &inner, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(WaitFor(StartK7m({"extract", path, "--track", "1", "-o", folder.Path("out.bin")}, inner,
                             inner)),
            0);
  pollfd ready = {outer, POLLIN, 0};
  EXPECT_EQ(poll(&ready, 1, 0), 0);
  close(outer);
  close(inner);
}

TEST(Signals, LeaveNoTemporaryFile) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("endless.mp4", EndlessFile(65536));
  ASSERT_EQ(truncate(path.c_str(), 1ll << 40), 0);  // A hole: all samples can be read.
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
    const pid_t process =
        StartK7m({"extract", path, "--track", "1", "-o", folder.Path("out.bin")}, nowhere, nowhere);
    const auto end = Clock::now() + kPatience;
    while (folder.Names().size() < 2 && Clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(folder.Names().size(), 2u) << "no temporary file appeared";
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    kill(process, signalNumber);
    EXPECT_EQ(WaitFor(process), 128 + signalNumber);
    EXPECT_EQ(folder.Names(), (std::vector<std::string>{"endless.mp4"}));
  }
  close(nowhere);
}

}  // namespace
}  // namespace k7mtest
