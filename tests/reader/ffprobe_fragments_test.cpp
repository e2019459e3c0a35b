// The samples of fragmented files as they lie in the file, compared with the packets that ffprobe
// finds there.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "ffprobe_comparison.h"
#include "media_files.h"

namespace k7mtest {
namespace {

constexpr ReadFlags kStandardRules{kQiroK7MReadBaseDataOffsets | kQiroK7MReadStartTimes};

std::string Clip(const std::string& name) { return std::string(K7M_TEST_DATA) + "/" + name; }

/// What differs when the file is opened plainly; its base data offsets must be absolute.
std::string PlainDifference(const std::string& path) {
  OpenedReader reader(ReadFile(path));
  if (reader.Result() != 0) return "the library answers " + std::to_string(reader.Result());
  EXPECT_TRUE(IsFragmented(reader));
  return DifferenceOf(reader, Probe(path), FragmentTimes::kFromZeroEach);
}

std::string StandardDifference(const std::string& path) {
  OpenedReader reader(ReadFile(path), kStandardRules);
  if (reader.Result() != 0) return "the library answers " + std::to_string(reader.Result());
  EXPECT_TRUE(IsFragmented(reader));
  return DifferenceOf(reader, Probe(path));
}

TEST(FfprobeFragments, CommittedClips_HaveTheSameSamples) {
  EXPECT_EQ(PlainDifference(Clip("fragmented-absolute.mp4")), "");
  for (const char* name :
       {"fragmented-absolute.mp4", "fragmented-base-is-moof.mp4", "fragmented-empty-moov.mp4"}) {
    EXPECT_EQ(StandardDifference(Clip(name)), "") << name;
  }
}

TEST(FfprobeFragments, WithoutTheRulesABaseThatIsNotGivenIsTheBeginOfTheFile) {
  EXPECT_EQ(PlainDifference(Clip("fragmented-empty-moov.mp4")), "track 0, sample 0: data 1030");
}

// Fragmented at test time
// ----------------------------------------------------------------------------

/// A way to fragment: further arguments of ffmpeg.
struct Manner {
  const char* arguments;
  bool isAbsolute;  // Every 'tfhd' has a base data offset.
  /// How the clip with B-frames may differ when it is read by the standard's rules, and plainly.
  const char* difference = "";
  const char* plainDifference = "";
};

/// ffprobe adds the greatest negative composition offset to every one.
constexpr const char* kNegative = "track 0, sample 0: composition offset";
/// Durations that ffmpeg guesses before it knows the next sample; start times say otherwise.
constexpr const char* kGuessed = "track 1, sample 1: decode time";

constexpr Manner kManners[] = {
    {"-movflags frag_keyframe", true},
    {"-movflags frag_keyframe+empty_moov", true},
    {"-movflags frag_every_frame+empty_moov", true, "", kGuessed},
    {"-movflags empty_moov -frag_duration 150000", true},
    {"-movflags frag_keyframe+empty_moov+separate_moof", true},
    {"-movflags frag_keyframe+delay_moov", true},
    {"-movflags frag_keyframe+default_base_moof", false},
    {"-movflags frag_keyframe+empty_moov+default_base_moof", false},
    {"-movflags frag_every_frame+empty_moov+default_base_moof", false},
    {"-movflags empty_moov+default_base_moof -frag_duration 150000", false},
    {"-movflags frag_keyframe+empty_moov+default_base_moof+separate_moof", false},
    {"-movflags frag_keyframe+empty_moov+default_base_moof+negative_cts_offsets", false, kNegative},
    {"-movflags frag_keyframe+delay_moov+default_base_moof+global_sidx", false},
    {"-movflags frag_keyframe+empty_moov+omit_tfhd_offset+separate_moof", false},
    {"-movflags cmaf", false, kNegative},
};

/// A file that is removed again.
class FragmentedCopy {
 public:
  FragmentedCopy(const std::string& source, const Manner& manner) {
    path_ = (std::filesystem::path(::testing::TempDir()) /
             ("k7m-fragmented-" + std::to_string(getpid()) + ".mp4"))
                .string();
    const std::string command = "ffmpeg -nostdin -v error -y -i '" + source + "' -c copy " +
                                manner.arguments + " -f mp4 '" + path_ + "'";
    wasMade_ = std::system(command.c_str()) == 0;
  }
  FragmentedCopy(const FragmentedCopy&) = delete;
  FragmentedCopy& operator=(const FragmentedCopy&) = delete;
  ~FragmentedCopy() { std::filesystem::remove(path_); }

  bool WasMade() const { return wasMade_; }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  bool wasMade_ = false;
};

TEST(FfprobeFragments, CopiesInManyManners_HaveTheSameSamples) {
  for (const bool hasBFrames : {true, false}) {
    const char* name = hasBFrames ? "h264-bframes-aac.mp4" : "video-only.mp4";
    for (const Manner& manner : kManners) {
      SCOPED_TRACE(std::string(name) + " " + manner.arguments);
      const FragmentedCopy copy(Clip(name), manner);
      ASSERT_TRUE(copy.WasMade()) << "ffmpeg is needed for this test (package ffmpeg)";
      if (manner.isAbsolute) {
        EXPECT_EQ(PlainDifference(copy.Path()), hasBFrames ? manner.plainDifference : "");
      }
      EXPECT_EQ(StandardDifference(copy.Path()), hasBFrames ? manner.difference : "");
    }
  }
}

// Files of others
// ------------------------------------------------------------------------------------

struct Exception {
  const char* file;
  const char* difference;
  const char* reason;
};

constexpr const char* kCut =
    "cut behind a movie fragment; ffprobe leaves out the packets that are not there";
constexpr const char* kCaptions = "ffprobe takes closed captions out of the boxes that hold them";
constexpr const char* kNegativeOffsets =
    "negative composition offsets: ffprobe adds the greatest of them to every one";

/// The files that may differ, each in exactly this way.
constexpr Exception kExceptions[] = {
    {"mp4-atom/src__test__av1.mp4", "track 0: 2 samples, 1 packets", kCut},
    {"mp4-atom/src__test__esds.mp4", "track 0: 1 samples, 0 packets", kCut},
    {"mp4-atom/src__test__h264.mp4", "track 0: 3 samples, 0 packets", kCut},
    {"mp4-atom/src__test__hevc.mp4", "track 0: 1 samples, 0 packets", kCut},
    {"mp4-atom/src__test__vp9.mp4", "track 0: 82 samples, 0 packets", kCut},
    {"mp4ff/examples__add-sidx__testdata__clear_with_enc_boxes.mp4", "1 tracks, 0 streams",
     "ffprobe gives up on its encryption boxes"},
    {"mp4ff/mp4__testdata__cbcs.mp4", "track 0: 182 samples, 91 packets",
     "ffprobe ends where the encryption boxes of a track do not fit its samples"},
    {"mp4ff/examples__multitrack__testdata__main_1.mp4", "track 1, sample 0: size", kCaptions},
    {"mp4ff/mp4__testdata__cbcsdec.mp4", "track 1, sample 0: bytes", kCaptions},
    {"mp4ff/mp4__testdata__vvc_400kbps_2s.mp4", "track 0, sample 0: composition offset",
     kNegativeOffsets},
};

std::string KnownDifference(const std::string& file) {
  for (const Exception& exception : kExceptions) {
    if (file == exception.file) return exception.difference;
  }
  return "";
}

TEST(FfprobeFragments, ForeignFiles_HaveTheSameSamples) {
  if (!HasForeignFolder()) GTEST_SKIP() << "there is no folder " << ForeignFolder();
  int compared = 0;
  for (const std::string& path : ForeignFiles()) {
    OpenedReader reader(ReadFile(path), kStandardRules);
    if (reader.Result() != 0 || !IsFragmented(reader)) continue;
    const ProbedFile probed = Probe(path);
    ASSERT_TRUE(probed.ran) << "ffprobe is needed for this test (package ffmpeg)";
    const std::string name = ShortName(path);
    EXPECT_EQ(DifferenceOf(reader, probed), KnownDifference(name)) << name;
    ++compared;
  }
  RecordProperty("compared", compared);
  EXPECT_GE(compared, 25);
}

}  // namespace
}  // namespace k7mtest
