// The samples as they lie in the file, compared with the packets that ffprobe finds there.
#include <gtest/gtest.h>

#include "ffprobe_comparison.h"
#include "media_files.h"
#include "support/md5.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

struct Exception {
  const char* file;
  const char* difference;
  const char* reason;
};

/// The files that may differ, each in exactly this way.
constexpr Exception kExceptions[] = {
    {"codem-isoboxer/test__fixtures__spliced_251.m4v", "the library answers 27, ffprobe reads it",
     "cut in the middle of the movie box; ffprobe makes do with a track without samples"},
    {"go-mp4/testdata__sample_qt.mp4", "track 0: 14315 samples, 1 packets",
     "cut in the middle of the media; ffprobe leaves out the packets that are not there"},
    {"mp4ff/mp4__testdata__init_prog.mp4", "track 0: 480 samples, 0 packets",
     "the media are missing; ffprobe leaves out the packets that are not there"},
    {"mp4ff/cmd__mp4ff-mvhevc__testdata__stereo_spatial.mp4", "track 0, sample 0: decode time",
     "negative composition offsets: ffprobe moves every decode time back by the greatest of them"},
};

/// The difference that is known of a file; empty for all other files.
std::string KnownDifference(const std::string& file) {
  for (const Exception& exception : kExceptions) {
    if (file == exception.file) return exception.difference;
  }
  return "";
}

/// Compares one file; returns whether there was something to compare.
bool CompareWithProbe(const std::string& path) {
  const std::string name = ShortName(path);
  OpenedReader reader(ReadFile(path));
  if (reader.Result() == 0 && IsFragmented(reader)) return false;
  const ProbedFile probed = Probe(path);
  EXPECT_TRUE(probed.ran) << "ffprobe is needed for this test (package ffmpeg)";
  if (!probed.ran || (reader.Result() != 0 && !probed.couldRead)) return false;
  std::string difference;
  if ((reader.Result() == 0) != probed.couldRead) {
    difference = "the library answers " + std::to_string(reader.Result()) +
                 (probed.couldRead ? ", ffprobe reads it" : ", ffprobe does not read it");
  } else {
    difference = DifferenceOf(reader, probed);
  }
  EXPECT_EQ(difference, KnownDifference(name)) << name;
  return true;
}

TEST(Ffprobe, OwnPlainFiles_HaveTheSameSamples) {
  int compared = 0;
  for (const std::string& path : DataFiles()) compared += CompareWithProbe(path) ? 1 : 0;
  EXPECT_GE(compared, 5);
}

TEST(Ffprobe, ForeignPlainFiles_HaveTheSameSamples) {
  if (!HasForeignFolder()) GTEST_SKIP() << "there is no folder " << ForeignFolder();
  const std::vector<std::string> files = ForeignFiles();
  int compared = 0;
  for (const std::string& path : files) compared += CompareWithProbe(path) ? 1 : 0;
  RecordProperty("compared", compared);
  EXPECT_GE(compared, 30);
}

TEST(Md5, DigestsAreTheKnownOnes) {
  EXPECT_EQ(Md5(Bytes()), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(Md5(Bytes().Text("abc")), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(Md5(Bytes().Text("12345678901234567890123456789012345678901234567890123456789012345678"
                             "901234567890")),
            "57edf4a22be3c955ac49da2e2107b67a");
}

}  // namespace
}  // namespace k7mtest
