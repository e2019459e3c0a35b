// `k7m samples --media` and `k7m extract` on fragmented files, compared with the packets that
// ffprobe finds there.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "reader/ffprobe_packets.h"
#include "reader/media_files.h"
#include "run_program.h"
#include "support/md5.h"

namespace k7mtest {
namespace {

using Json = nlohmann::json;

struct Exception {
  const char* difference;
  const char* reason;
};

// The files that may differ, each in exactly this way.
constexpr const char* kCut = "cut off; ffprobe leaves out the packets that are not there";
constexpr const char* kCaptions = "ffprobe takes closed captions out of their boxes";
const std::map<std::string, Exception> kExceptions = {
    {"mp4-atom/src__test__av1.mp4", {"track 1: 2 samples, 1 packets", kCut}},
    {"mp4-atom/src__test__esds.mp4", {"track 1: 1 samples, 0 packets", kCut}},
    {"mp4-atom/src__test__h264.mp4", {"track 1: 3 samples, 0 packets", kCut}},
    {"mp4-atom/src__test__hevc.mp4", {"track 1: 1 samples, 0 packets", kCut}},
    {"mp4-atom/src__test__vp9.mp4", {"track 1: 82 samples, 0 packets", kCut}},
    {"mp4ff/examples__multitrack__testdata__main_1.mp4",
     {"track 2, sample at 300000: size", kCaptions}},
    {"mp4ff/mp4__testdata__cbcsdec.mp4", {"track 2, sample at 11001: size", kCaptions}},
    {"mp4ff/mp4__testdata__cbcs.mp4",
     {"track 1: 182 samples, 91 packets",
      "ffprobe finds fault with the encryption and leaves out the second fragment"}},
    {"mp4ff/mp4__testdata__vvc_400kbps_2s.mp4",
     {"track 1, sample at 0: composition offset",
      "negative composition offsets: ffprobe moves every composition time by the greatest of "
      "them"}},
};

std::string DifferenceOf(const Json& sample, const ProbedPacket& packet, const Json& track) {
  const std::string number = ", sample at " + sample["timeStamp"].dump();
  if (sample["size"] != packet.size) return number + ": size";
  if (packet.dts != sample["timeStamp"].get<int64_t>()) return number + ": decode time";
  if (!packet.pts || *packet.pts - *packet.dts != sample["compositionOffset"].get<int64_t>()) {
    return number + ": composition offset";
  }
  // Without a table of key samples those of the movie box are deliberately none.
  const bool isVideo = track["mediaType"] == "vide";
  if (sample["isKey"] != packet.isKey && (isVideo || !packet.isKey)) return number + ": key flag";
  return "";
}

// Whether the bytes of the track are those of the packets.
std::string ByteDifference(const std::string& path, const Json& track, const ProbedStream& stream) {
  const RunResult result = RunK7m({"extract", path, "--track", track["number"].dump(), "-o", "-"});
  if (result.exitCode != 0) return ": " + result.err;
  size_t begin = 0;
  for (const ProbedPacket& packet : stream.packets) {
    if (Md5(Bytes().Text(result.out.substr(begin, packet.size))) != packet.md5) {
      return ", bytes from " + std::to_string(begin);
    }
    begin += packet.size;
  }
  return begin == result.out.size() ? "" : ", more bytes";
}

std::string DifferenceOf(const std::string& path, const Json& track, const ProbedStream& stream) {
  const std::string name = "track " + track["number"].dump();
  const RunResult result =
      RunK7m({"samples", path, "--media", "--json", "--track", track["number"].dump()});
  if (result.exitCode != 0) return name + ": " + result.err;
  const Json samples = Json::parse(result.out);
  if (samples.size() != stream.packets.size()) {
    return name + ": " + std::to_string(samples.size()) + " samples, " +
           std::to_string(stream.packets.size()) + " packets";
  }
  for (size_t i = 0; i < samples.size(); ++i) {
    const std::string difference = samples[i]["timeScale"] == stream.timeScale
                                       ? DifferenceOf(samples[i], stream.packets[i], track)
                                       : ": time scale";
    if (!difference.empty()) return name + difference;
  }
  const std::string difference = ByteDifference(path, track, stream);
  return difference.empty() ? "" : name + difference;
}

std::string DifferenceOf(const std::string& path, const Json& info, const ProbedFile& probed) {
  const Json& tracks = info["tracks"];
  if (tracks.size() != probed.streams.size()) {
    return std::to_string(tracks.size()) + " tracks, " + std::to_string(probed.streams.size()) +
           " streams";
  }
  for (size_t i = 0; i < tracks.size(); ++i) {
    const std::string difference = DifferenceOf(path, tracks[i], probed.streams[i]);
    if (!difference.empty()) return difference;
  }
  return "";
}

// Returns whether the file has fragments that both can read.
bool Compare(const std::string& path) {
  const RunResult result = RunK7m({"info", path, "--json"});
  const Json info = Json::parse(result.out, nullptr, false);
  if (info.is_discarded() || info["document"].is_null()) return false;
  if (info["document"]["fragmentCount"] == 0) return false;
  const ProbedFile probed = Probe(path);
  EXPECT_TRUE(probed.ran) << "ffprobe is needed for this test (package ffmpeg)";
  if (!probed.couldRead) return false;
  const auto known = kExceptions.find(ShortName(path));
  const std::string expected = known == kExceptions.end() ? "" : known->second.difference;
  EXPECT_EQ(DifferenceOf(path, info, probed), expected) << path;
  return true;
}

TEST(SamplesFfprobe, OwnFragmentedFilesHaveTheSameSamples) {
  int compared = 0;
  for (const std::string& path : DataFiles()) compared += Compare(path) ? 1 : 0;
  EXPECT_EQ(compared, 3);
}

TEST(SamplesFfprobe, ForeignFragmentedFilesHaveTheSameSamples) {
  if (!HasForeignFolder()) GTEST_SKIP() << "there is no folder " << ForeignFolder();
  int compared = 0;
  for (const std::string& path : ForeignFiles()) compared += Compare(path) ? 1 : 0;
  RecordProperty("compared", compared);
  EXPECT_GE(compared, 20);
}

TEST(SamplesFfprobe, FragmentedCopiesOfPlainFilesHaveTheSameSamples) {
  const TemporaryFolder folder;
  const std::string copy = folder.Path("copy.mp4");
  int compared = 0;
  for (const std::string& path : DataFiles()) {
    SCOPED_TRACE(path);
    ASSERT_EQ(RunK7m({"remux", path, copy, "--fragmented=0.5", "--force"}).exitCode, 0);
    compared += Compare(copy) ? 1 : 0;
  }
  EXPECT_EQ(compared, 8);
}

}  // namespace
}  // namespace k7mtest
