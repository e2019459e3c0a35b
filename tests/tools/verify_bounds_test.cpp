// `k7m verify`: whatever a file says, there is an answer in good time and in little memory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../reader/media_files.h"
#include "small_fragments.h"
#include "small_movie.h"
#include "verified_file.h"

namespace k7mtest {
namespace {

constexpr double kSeconds = 10;
constexpr long kKibibytes = 256L * 1024;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsMemoryMeasured = false;
#elif defined(__has_feature)
constexpr bool kIsMemoryMeasured = !__has_feature(address_sanitizer);
#else
constexpr bool kIsMemoryMeasured = true;
#endif

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// Gives what the program found.
void ExpectBounded(const std::string& path, const std::set<int>& exitCodes, Verdict* verdict) {
  const TemporaryFolder folder;
  const std::string result = folder.Path("result.json");
  const int out = open(result.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(out, 0);
  const pid_t process = StartK7m({"verify", path, "--json"}, out, out);
  int status = 0;
  struct rusage usage {};
  ASSERT_EQ(wait4(process, &status, 0, &usage), process);
  close(out);
  // Of the processor, so that other work on the machine does not count.
  const double seconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  ASSERT_TRUE(WIFEXITED(status)) << path;
  ASSERT_TRUE(nlohmann::json::accept(ReadText(result))) << path;
  verdict->json = nlohmann::json::parse(ReadText(result));
  EXPECT_EQ(exitCodes.count(WEXITSTATUS(status)), 1u) << path << ": " << WEXITSTATUS(status);
  EXPECT_LT(seconds, kSeconds) << path;
  if (kIsMemoryMeasured) {
    EXPECT_LT(usage.ru_maxrss, kKibibytes) << path;
  }
}

Verdict ExpectBounded(const Bytes& bytes) {
  const TemporaryFolder folder;
  Verdict verdict;
  ExpectBounded(folder.Write("clip.mp4", bytes), {1, 3}, &verdict);
  return verdict;
}

TEST(VerifyBounds, FilesOfOtherProjectsEndWithAnAnswer) {
  if (!HasForeignFolder()) GTEST_SKIP() << ForeignFolder() << " is not there";
  Verdict verdict;
  for (const std::string& path : ForeignFiles()) ExpectBounded(path, {0, 1, 3}, &verdict);
}

TEST(VerifyBounds, EveryTruncationEndsWithAnAnswer) {
  const Bytes whole = SmallFile();
  for (size_t size = 0; size < whole.Size(); size += 61) {
    SCOPED_TRACE(size);
    const Verdict verdict = Verify(Cut(whole, size));
    EXPECT_EQ(verdict.exitCode, 1) << verdict.json.dump(2);
  }
}

// A movie with one track whose tables promise samples without end.
Movie EndlessMovie(uint32_t count) {
  Movie movie;
  movie.tracks = {{.samples = {SampleOf(1000)}, .duration = 10}};
  Replacements& tables = movie.tracks[0].replace;
  tables["stsz"] = FullBox("stsz", 0, 0, Stsz{.constantSize = 1, .count = count});
  tables["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{count, 1}}});
  tables["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, count, 1}}});
  return movie;
}

TEST(VerifyBounds, SamplesWithoutEnd) {
  const Bytes more = Box("free", Bytes().Fill(4000000));
  ExpectBounded(BuildMovie(EndlessMovie(0xFFFFFFFF)).bytes + more);
  const Bytes file = BuildMovie(EndlessMovie(90000000)).bytes + more;
  EXPECT_EQ(ExpectBounded(file).Rules().count("samples-not-read"), 1u);
}

// Every chunk lies in the same place.
TEST(VerifyBounds, MoreChunksThanAreCompared) {
  constexpr uint32_t kCount = (1u << 21) + 1;
  Movie movie = EndlessMovie(kCount);
  movie.tracks[0].replace["stsc"] = FullBox("stsc", 0, 0, Stsc{.runs = {{1, 1, 1}}});
  movie.tracks[0].chunkOffsets = [](const std::vector<uint64_t>& offsets) {
    return FullBox(
        "stco", 0, 0,
        Stco{.offsets = std::vector<uint32_t>(kCount, static_cast<uint32_t>(offsets[0]))});
  };
  const Verdict verdict = ExpectBounded(BuildMovie(movie).bytes);
  EXPECT_EQ(verdict.Finding("layout-not-compared")["severity"], "info");
}

TEST(VerifyBounds, LargeSamplesInTheSamePlace) {
  Movie movie;
  movie.tracks = {{.samples = {SampleOf(2000000)}}};
  movie.tracks[0].replace["stsz"] =
      FullBox("stsz", 0, 0, Stsz{.constantSize = 2000000, .count = 200000});
  movie.tracks[0].replace["stts"] = FullBox("stts", 0, 0, Stts{.runs = {{200000, 1}}});
  movie.tracks[0].chunkOffsets = [](const std::vector<uint64_t>& offsets) {
    return FullBox(
        "stco", 0, 0,
        Stco{.offsets = std::vector<uint32_t>(200000, static_cast<uint32_t>(offsets[0]))});
  };
  ExpectBounded(BuildMovie(movie).bytes);
}

TEST(VerifyBounds, BoxesWithoutEnd) {
  Bytes boxes;
  for (int i = 0; i < 500000; ++i) boxes.U32(8).Code("free");
  Movie movie = SmallMovie();
  ExpectBounded(BuildMovie(movie).bytes + boxes + Bytes{1, 2, 3});
  movie.moreInMoov = boxes + Bytes{1, 2, 3};
  EXPECT_EQ(ExpectBounded(BuildMovie(movie).bytes).Rules().count("box-count"), 1u);
}

TEST(VerifyBounds, TracksWithoutEnd) {
  Movie movie = SmallMovie();
  for (int i = 0; i < 100000; ++i) movie.moreInMoov.Append(Box("trak", Box("mdia")));
  ExpectBounded(BuildMovie(movie).bytes);
  Movie sound;
  sound.tracks.resize(6000, Track{.samples = SomeSamples(2)});
  sound.duration = 999999;
  ExpectBounded(BuildMovie(sound).bytes);
}

TEST(VerifyBounds, RunsWithoutEnd) {
  Bytes runs;
  for (int i = 0; i < 100000; ++i) {
    runs.Append(FullBox("trun", 0, 0x1, Trun{.dataOffset = 0, .count = 0xFFFFFFFF}));
  }
  const Bytes head = BuildMovie(SmallFragmentedMovie()).bytes;
  ExpectBounded(head + Box("moof", FullBox("mfhd", 0, 0, Mfhd{}),
                           Box("traf", FullBox("tfhd", 0, 0, Tfhd{}), runs)));
}

TEST(VerifyBounds, FragmentsWithoutEnd) {
  Bytes fragments;
  for (int i = 0; i < 60000; ++i) {
    fragments.Append(Box("moof", FullBox("mfhd", 0, 0, Mfhd{}),
                         Box("traf", FullBox("tfhd", 0, 0, Tfhd{}), FullBox("trun", 0, 0, Trun{}),
                             FullBox("trun", 0, 0, Trun{}))));
  }
  ExpectBounded(BuildMovie(SmallFragmentedMovie()).bytes + fragments);
}

// Every entry points at the same large fragment.
TEST(VerifyBounds, SeekEntriesWithoutEnd) {
  const Bytes head = BuildMovie(SmallFragmentedMovie()).bytes;
  Trun trun;
  for (uint32_t i = 0; i < 100000; ++i) trun.samples.push_back({.size = 1, .flags = 0x01010000});
  Bytes entries = Bytes().U32(1).U32(0x3F).U32(100000);
  for (uint32_t i = 0; i < 100000; ++i) {
    entries.U32(0).U32(head.Size()).U32(1).U32(1).U32((i * 7919) % 100000 + 1);
  }
  ExpectBounded(head +
                Box("moof", FullBox("mfhd", 0, 0, Mfhd{}),
                    Box("traf", FullBox("tfhd", 0, 0, Tfhd{}), FullBox("trun", 0, 0x600, trun))) +
                Box("mfra", FullBox("tfra", 0, 0, entries)));
}

}  // namespace
}  // namespace k7mtest
