// The example programs do what they say: ffmpeg decodes what they write.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tools/decoded_streams.h"

namespace k7mtest {
namespace {

namespace fs = std::filesystem;

class ExamplesTest : public testing::Test {
 protected:
  ExamplesTest() {
    std::string pattern = (fs::temp_directory_path() / "k7m-test-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
  }
  ~ExamplesTest() override { fs::remove_all(folder_); }
  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  bool Run(const std::string& program, const std::vector<std::string>& paths) {
    std::string command = Quoted(program);
    for (const std::string& path : paths) command += " " + Quoted(path);
    return RunCommand(command + " 2>&1").has_value();
  }

 private:
  fs::path folder_;
};

// Raw bytes of a stream as ffmpeg decodes it.
std::string Decode(const std::string& path, const std::string& options) {
  return RunCommand("ffmpeg -nostdin -v error -i " + Quoted(path) + " " + options + " -")
      .value_or("");
}

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

TEST_F(ExamplesTest, RecordLiveGoesOnWhereItEnded) {
  const std::string recording = Path("live.k7r");
  for (size_t times = 1; times <= 3; ++times) {
    ASSERT_TRUE(Run(K7M_RECORD_LIVE, {recording, "2", "0"}));
    EXPECT_EQ(FramesOf(recording), FirstFrames(times * 2 * 25));
  }
}

TEST_F(ExamplesTest, RecordLiveMayBeKilledAtAnyMoment) {
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

TEST_F(ExamplesTest, UnusableFilesAreFailures) {
  EXPECT_FALSE(Run(K7M_RECORD_LIVE, {}));
  EXPECT_FALSE(Run(K7M_RECORD_LIVE, {Path("no/such/live.k7r")}));
  const std::string text = Path("text");
  std::ofstream(text) << "This is no recording, and must not become one.";
  EXPECT_FALSE(Run(K7M_RECORD_LIVE, {text, "1", "0"}));
  EXPECT_EQ(fs::file_size(text), 46u);

  EXPECT_FALSE(Run(K7M_WRITE_MOVIE, {Path("no/such/movie.mov")}));
  EXPECT_FALSE(Run(K7M_COPY_MOVIE, {Path("none.mp4"), Path("copy.mp4")}));
  EXPECT_FALSE(Run(K7M_COPY_MOVIE, {"/dev/null", Path("copy.mp4")}));
  EXPECT_FALSE(Run(K7M_WRITE_MOVIE, {}));
  EXPECT_FALSE(Run(K7M_WRITE_FRAGMENTED, {Path("no/such/movie.mov")}));
  EXPECT_FALSE(Run(K7M_WRITE_FRAGMENTED, {}));
}

}  // namespace
}  // namespace k7mtest
