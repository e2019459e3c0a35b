// A player that knows nothing of this library sees the same pictures and hears the same sounds.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "decoded_streams.h"
#include "reader/media_files.h"
#include "run_program.h"

namespace k7mtest {
namespace {

// Files whose copies ffmpeg decodes differently.
const std::set<std::string> kDifferent = {
    // How many sound samples are to be cut off at the begin stands in user data, which is not
    // copied.
    "mp4-rust/examples__mpeg_aac_decoder__audio_aac.m4a",
    // Encrypted; ffmpeg finds fault with that and leaves out the second fragment. The copy does not
    // have the boxes at fault.
    "mp4ff/mp4__testdata__cbcs.mp4",
};

// Encrypted files: what ffmpeg makes of their pictures and sounds is different each time.
const std::set<std::string> kOnlyPackets = {
    "mp4ff/cmd__mp4ff-decrypt__testdata__PIFF__video__complseg-1.0001.mp4",
    "mp4ff/mp4__testdata__cbcs.mp4",
    "mp4ff/mp4__testdata__cbcs_audio.mp4",
    "mp4ff/mp4__testdata__prog_8s_enc_dashinit.mp4",
};

// Plain copies alone.
const std::set<std::string> kDifferentInTables = {
    // A single sample, which gets the shortest duration there is: ffmpeg takes sound samples of
    // duration 1 for uncompressed ones, unless they are in fragments.
    "mp4-rust/tests__samples__extended_audio_object_type.mp4",
};

struct Totals {
  int decoded = 0;   // Files whose streams were decoded.
  int compared = 0;  // Files whose packets were compared, for want of a decoder.
};

bool HasSamples(const HashesByStream& hashes) {
  return std::any_of(hashes.begin(), hashes.end(),
                     [](const auto& stream) { return !stream.second.empty(); });
}

void CompareStreams(const HashesByStream& source, const std::optional<HashesByStream>& result,
                    bool isException) {
  if (isException) {
    EXPECT_TRUE(!result || *result != source) << "is no exception any more";
    return;
  }
  ASSERT_TRUE(result) << "ffmpeg reads the source and not the copy";
  ASSERT_EQ(source.size(), result->size());
  for (const auto& [stream, hashes] : source) {
    EXPECT_FALSE(hashes.empty()) << "stream " << stream;
    EXPECT_TRUE(hashes == result->at(stream)) << "stream " << stream << " differs";
  }
}

void CompareWithCopies(const std::string& path, const TemporaryFolder& folder, Totals* totals) {
  SCOPED_TRACE(path);
  const std::string plain = folder.Path("plain.mp4");
  const std::string fragmented = folder.Path("fragmented.mp4");
  // What cannot be copied is the matter of other tests.
  if (RunK7m({"remux", path, plain, "--force"}).exitCode != 0) return;
  ASSERT_EQ(RunK7m({"remux", path, fragmented, "--fragmented", "--force"}).exitCode, 0);
  const bool isEncrypted = kOnlyPackets.count(ShortName(path)) > 0;
  Hashing hashing = isEncrypted ? Hashing::kPackets : Hashing::kDecodedFrames;
  std::optional<HashesByStream> source = HashStreams(path, hashing);
  if (!source) {
    hashing = Hashing::kPackets;
    source = HashStreams(path, hashing);
  }
  if (!source || !HasSamples(*source)) return;
  const bool isException = kDifferent.count(ShortName(path)) > 0;
  if (!isException) ++(hashing == Hashing::kDecodedFrames ? totals->decoded : totals->compared);
  CompareStreams(*source, HashStreams(plain, hashing),
                 isException || kDifferentInTables.count(ShortName(path)) > 0);
  SCOPED_TRACE("fragmented copy");
  CompareStreams(*source, HashStreams(fragmented, hashing), isException);
}

TEST(RemuxDecode, OwnFilesGiveTheSameFrames) {
  const TemporaryFolder folder;
  Totals totals;
  for (const std::string& path : DataFiles()) CompareWithCopies(path, folder, &totals);
  EXPECT_EQ(totals.decoded, 8);
}

TEST(RemuxDecode, ForeignFilesGiveTheSameFrames) {
  if (!HasForeignFolder()) GTEST_SKIP() << "there is no folder " << ForeignFolder();
  const TemporaryFolder folder;
  Totals totals;
  for (const std::string& path : ForeignFiles()) CompareWithCopies(path, folder, &totals);
  RecordProperty("decoded", totals.decoded);
  RecordProperty("compared", totals.compared);
  EXPECT_GE(totals.decoded, 20);
}

}  // namespace
}  // namespace k7mtest
