// The example programs do what they say: ffmpeg decodes what they write.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "example_runs.h"

namespace k7mtest {
namespace {

namespace fs = std::filesystem;

class ExamplesTest : public ExampleRuns {};

// The two seconds that both writing programs make.
void ExpectPicturesAndSound(const std::string& movie) {
  const std::string pictures =
      Decode(movie, "-map 0:v -vsync passthrough -pix_fmt rgb24 -f rawvideo");
  constexpr size_t kFrame = 160 * 120 * 3;
  ASSERT_EQ(pictures.size(), 50 * kFrame);
  // Blue beside the white bar, which has moved 80 pixels by picture 25.
  EXPECT_EQ(pictures.substr(25 * kFrame + 3 * 79, 6), std::string("\0\0\xFF\xFF\xFF\xFF", 6));
  const std::string sound = Decode(movie, "-map 0:a -f s16le");
  ASSERT_EQ(sound.size(), 2 * 48000 * 2 * 2u);
  EXPECT_EQ(sound.substr(0, 8), std::string("\xC0\xE0\xC0\xE0\x10\xE1\x10\xE1", 8));
}

TEST_F(ExamplesTest, WriteMovieMakesPicturesAndSound) {
  ASSERT_TRUE(Run(K7M_WRITE_MOVIE, {Path("movie.mov")}));
  ExpectPicturesAndSound(Path("movie.mov"));
}

TEST_F(ExamplesTest, WriteFragmentedMakesPicturesAndSoundInFragments) {
  const std::string movie = Path("fragmented.mov");
  ASSERT_TRUE(Run(K7M_WRITE_FRAGMENTED, {movie}));
  ExpectPicturesAndSound(movie);
  const std::string packets = RunCommand(
                                  "ffprobe -v error -show_entries "
                                  "packet=stream_index,dts,duration -of csv=p=0 " +
                                  Quoted(movie))
                                  .value_or("");
  // The last sample of a fragment and the last one of all last as long as the others.
  for (const char* packet : {"0,9,1\n", "0,49,1\n", "1,94080,1920\n"}) {
    EXPECT_NE(packets.find(packet), std::string::npos) << packet << packets;
  }
  std::ifstream file(movie, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  size_t fragments = 0;
  for (size_t at = 0; (at = bytes.find("mfhd", at)) != std::string::npos; ++at) ++fragments;
  EXPECT_EQ(fragments, 5u);
}

TEST_F(ExamplesTest, CopyMovieMakesTheSameFrames) {
  for (const char* clip : {"h264-bframes-aac.mp4", "two-descriptions-two-audio.mp4"}) {
    const std::string source = std::string(K7M_TEST_DATA) + "/" + clip;
    const std::string copy = Path("copy.mp4");
    ASSERT_TRUE(Run(K7M_COPY_MOVIE, {source, copy}));
    const auto expected = HashStreams(source, Hashing::kDecodedFrames);
    const auto result = HashStreams(copy, Hashing::kDecodedFrames);
    ASSERT_TRUE(expected && result);
    EXPECT_GE(expected->size(), 2u);
    EXPECT_TRUE(*expected == *result);
  }
}

TEST_F(ExamplesTest, UnusableFilesAreFailures) {
  EXPECT_FALSE(Run(K7M_WRITE_MOVIE, {Path("no/such/movie.mov")}));
  EXPECT_FALSE(Run(K7M_COPY_MOVIE, {Path("none.mp4"), Path("copy.mp4")}));
  EXPECT_FALSE(Run(K7M_COPY_MOVIE, {"/dev/null", Path("copy.mp4")}));
  EXPECT_FALSE(Run(K7M_WRITE_MOVIE, {}));
  EXPECT_FALSE(Run(K7M_WRITE_FRAGMENTED, {Path("no/such/movie.mov")}));
  EXPECT_FALSE(Run(K7M_WRITE_FRAGMENTED, {}));
}

}  // namespace
}  // namespace k7mtest
