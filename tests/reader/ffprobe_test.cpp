// The samples as they lie in the file, compared with the packets that ffprobe finds there.
#include <gtest/gtest.h>

#include "ffprobe_packets.h"
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

bool HasSyncTable(const std::vector<ReadSample>& samples) {
  for (const ReadSample& sample : samples) {
    if ((sample.info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagKey) return true;
  }
  return false;
}

std::string DifferenceOf(const ReadSample& sample, const ProbedPacket& packet, bool hasKeys) {
  if (sample.info.sampleSize != packet.size) return "size";
  if (packet.dts != static_cast<int64_t>(sample.info.timeStamp)) return "decode time";
  const auto composition = static_cast<int32_t>(sample.info.compositionOffset);
  if (!packet.pts || *packet.pts - *packet.dts != composition) return "composition offset";
  // A track without a sync sample table reports no key samples, deliberately.
  const bool isKey = (sample.info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagKey;
  if (hasKeys && isKey != packet.isKey) return "key flag";
  if (!hasKeys && !packet.isKey) return "no sync sample table, yet no key packet";
  if (sample.dataResult != 0) return "data " + std::to_string(sample.dataResult);
  return Md5(sample.data) == packet.md5 ? "" : "bytes";
}

/// Raw audio has a sample for each moment; ffprobe shows many of them as one packet.
std::vector<ReadSample> Grouped(const std::vector<ReadSample>& samples,
                                const ProbedStream& stream) {
  std::vector<ReadSample> groups;
  size_t next = 0;
  for (const ProbedPacket& packet : stream.packets) {
    ReadSample group;
    for (; next < samples.size() && group.data.Size() < packet.size; ++next) {
      if (group.data.Empty())
        group = samples[next];
      else
        group.data.Append(samples[next].data);
    }
    group.info.sampleSize = static_cast<uint32_t>(group.data.Size());
    groups.push_back(group);
  }
  if (next < samples.size()) groups.push_back(samples[next]);
  return groups;
}

/// The first difference between a track's samples and a stream's packets; empty when there is none.
std::string DifferenceOf(const std::vector<ReadSample>& samples, const ProbedStream& stream) {
  if (samples.size() != stream.packets.size()) {
    return ": " + std::to_string(samples.size()) + " samples, " +
           std::to_string(stream.packets.size()) + " packets";
  }
  const bool hasKeys = HasSyncTable(samples);
  for (size_t i = 0; i < samples.size(); ++i) {
    std::string difference = DifferenceOf(samples[i], stream.packets[i], hasKeys);
    if (samples[i].info.timeScale != stream.timeScale) difference = "time scale";
    if (!difference.empty()) return ", sample " + std::to_string(i) + ": " + difference;
  }
  return "";
}

/// The first difference between a whole document and what ffprobe says.
std::string DifferenceOf(const OpenedReader& reader, const ProbedFile& probed) {
  const std::vector<QiroK7MTrack*> tracks = reader.Tracks();
  if (tracks.size() != probed.streams.size()) {
    return std::to_string(tracks.size()) + " tracks, " + std::to_string(probed.streams.size()) +
           " streams";
  }
  for (size_t t = 0; t < tracks.size(); ++t) {
    std::vector<ReadSample> samples = MediaSamples(reader, tracks[t]);
    if (probed.streams[t].codecName.starts_with("pcm_")) {
      samples = Grouped(samples, probed.streams[t]);
    }
    const std::string difference = DifferenceOf(samples, probed.streams[t]);
    if (!difference.empty()) return "track " + std::to_string(t) + difference;
  }
  return "";
}

bool IsFragmented(const OpenedReader& reader) {
  QiroK7MDocInfo info{};
  EXPECT_EQ(QiroK7MReaderGetDocInfo(reader.Handle(), &info), 0u);
  return info.isFragmented == 1;
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
