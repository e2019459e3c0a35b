// Media behind the first 4 GiB of a file. The file has a hole and takes hardly any room.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "run_program.h"
#include "small_movie.h"

namespace k7mtest {
namespace {

constexpr uint64_t kHole = 5ull << 30;

// The small movie with its media data pushed back by the hole, which lies at the begin of 'mdat'.
void WriteLargeFile(const std::string& path) {
  Movie movie = SmallMovie();
  movie.isMovieBoxLast = true;
  movie.hasLargeMdat = true;
  for (Track& track : movie.tracks) {
    track.chunkOffsets = [](const std::vector<uint64_t>& offsets) {
      Co64 table{.offsets = offsets};
      for (uint64_t& offset : table.offsets) offset += kHole;
      return FullBox("co64", 0, 0, table);
    };
  }
  const MovieFile file = BuildMovie(movie);
  const size_t mediaBegin = file.mdatOffset + 16;
  Bytes bytes = file.bytes;
  bytes.Patch(file.mdatOffset + 8, bytes.NumberAt(file.mdatOffset + 8, 8) + kHole, 8);
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(descriptor, 0);
  const size_t rest = bytes.Size() - mediaBegin;
  EXPECT_EQ(pwrite(descriptor, bytes.Data(), mediaBegin, 0), static_cast<ssize_t>(mediaBegin));
  EXPECT_EQ(
      pwrite(descriptor, bytes.Data() + mediaBegin, rest, static_cast<off_t>(mediaBegin + kHole)),
      static_cast<ssize_t>(rest));
  close(descriptor);
}

TEST(LargeFile, SamplesBehindFourGibibytesAreRead) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("large.mp4");
  WriteLargeFile(path);
  const RunResult result = RunK7m({"extract", path, "--track", "1", "-o", "-"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  Bytes expected;
  const Movie movie = SmallMovie();
  for (const TestSample& sample : movie.tracks[0].samples) expected.Append(sample.data);
  EXPECT_EQ(Bytes().Text(result.out), expected);
  const RunResult info = RunK7m({"info", path});
  EXPECT_EQ(info.exitCode, 0) << info;
}

}  // namespace
}  // namespace k7mtest
