// A player that knows nothing of this library sees the same pictures and hears the same sounds.
#include <gtest/gtest.h>

#include <set>

#include "decoded_streams.h"
#include "reader/media_files.h"
#include "run_program.h"

namespace k7mtest {
namespace {

// Copies that ffmpeg decodes differently.
const std::set<std::string> kDifferent = {
    // How many sound samples are to be cut off at the begin stands in user data, which is not
    // copied.
    "mp4-rust/examples__mpeg_aac_decoder__audio_aac.m4a",
    // A single sample, which gets the shortest duration there is: ffmpeg takes sound samples of
    // duration
    // 1 for uncompressed ones.
    "mp4-rust/tests__samples__extended_audio_object_type.mp4",
};

struct Totals {
  int decoded = 0;   // Files whose streams were decoded.
  int compared = 0;  // Files whose packets were compared, for want of a decoder.
};

void CompareWithCopy(const std::string& path, const TemporaryFolder& folder, Totals* totals) {
  SCOPED_TRACE(path);
  const std::string copy = folder.Path("copy.mp4");
  // What cannot be copied is the matter of other tests.
  if (RunK7m({"remux", path, copy, "--force"}).exitCode != 0) return;
  Hashing hashing = Hashing::kDecodedFrames;
  std::optional<HashesByStream> source = HashStreams(path, hashing);
  if (!source) {
    hashing = Hashing::kPackets;
    source = HashStreams(path, hashing);
  }
  if (!source || source->empty()) return;
  const std::optional<HashesByStream> result = HashStreams(copy, hashing);
  if (kDifferent.count(ShortName(path)) > 0) {
    EXPECT_TRUE(!result || *result != *source) << "is no exception any more";
    return;
  }
  ASSERT_TRUE(result) << "ffmpeg reads the source and not the copy";
  ++(hashing == Hashing::kDecodedFrames ? totals->decoded : totals->compared);
  EXPECT_EQ(source->size(), result->size());
  for (const auto& [stream, hashes] : *source) {
    EXPECT_FALSE(hashes.empty()) << "stream " << stream;
    EXPECT_TRUE(hashes == result->at(stream)) << "stream " << stream << " differs";
  }
}

TEST(RemuxDecode, OwnFilesGiveTheSameFrames) {
  const TemporaryFolder folder;
  Totals totals;
  for (const std::string& path : DataFiles()) CompareWithCopy(path, folder, &totals);
  EXPECT_EQ(totals.decoded, 5);
}

TEST(RemuxDecode, ForeignFilesGiveTheSameFrames) {
  if (!HasForeignFolder()) GTEST_SKIP() << "there is no folder " << ForeignFolder();
  const TemporaryFolder folder;
  Totals totals;
  for (const std::string& path : ForeignFiles()) CompareWithCopy(path, folder, &totals);
  RecordProperty("decoded", totals.decoded);
  RecordProperty("compared", totals.compared);
  EXPECT_GE(totals.decoded, 20);
}

}  // namespace
}  // namespace k7mtest
