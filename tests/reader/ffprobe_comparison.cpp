#include "ffprobe_comparison.h"

#include <gtest/gtest.h>

#include "support/md5.h"

namespace k7mtest {

namespace {

bool HasKeySamples(const std::vector<ReadSample>& samples) {
  for (const ReadSample& sample : samples) {
    if ((sample.info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagKey) return true;
  }
  return false;
}

/// Whether and how the key flags of a track are compared.
enum class Keys : uint8_t {
  kAsFlagged,
  /// A track without a sync sample table reports no key samples, deliberately.
  kNoTable,
  /// To ffprobe every sound packet is a key packet, whatever a fragment says.
  kSoundInFragments,
};

Keys KeysOf(const std::vector<ReadSample>& samples, bool isFragmented) {
  if (isFragmented && !samples.empty() && samples[0].info.mediaType == Code("soun")) {
    return Keys::kSoundInFragments;
  }
  return HasKeySamples(samples) ? Keys::kAsFlagged : Keys::kNoTable;
}

std::string DifferenceOf(const ReadSample& sample, const ProbedPacket& packet, Keys keys) {
  if (sample.info.sampleSize != packet.size) return "size";
  if (packet.dts != static_cast<int64_t>(sample.info.timeStamp)) return "decode time";
  const auto composition = static_cast<int32_t>(sample.info.compositionOffset);
  if (!packet.pts || *packet.pts - *packet.dts != composition) return "composition offset";
  const bool isKey = (sample.info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagKey;
  if (keys == Keys::kAsFlagged && isKey != packet.isKey) return "key flag";
  if (keys == Keys::kNoTable && !packet.isKey) return "no sync sample table, yet no key packet";
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
std::string DifferenceOf(const std::vector<ReadSample>& samples, const ProbedStream& stream,
                         bool isFragmented) {
  if (samples.size() != stream.packets.size()) {
    return ": " + std::to_string(samples.size()) + " samples, " +
           std::to_string(stream.packets.size()) + " packets";
  }
  const Keys keys = KeysOf(samples, isFragmented);
  for (size_t i = 0; i < samples.size(); ++i) {
    std::string difference = DifferenceOf(samples[i], stream.packets[i], keys);
    if (samples[i].info.timeScale != stream.timeScale) difference = "time scale";
    if (!difference.empty()) return ", sample " + std::to_string(i) + ": " + difference;
  }
  return "";
}

/// Puts the times of fragments that count from 0 behind those before them.
void JoinTimes(std::vector<ReadSample>& samples, const ProbedStream& stream) {
  uint64_t shift = 0;
  uint64_t previous = 0;
  for (size_t i = 0; i < samples.size() && i < stream.packets.size(); ++i) {
    const uint64_t time = samples[i].info.timeStamp;
    if (time < previous) shift = static_cast<uint64_t>(stream.packets[i].dts.value_or(0));
    previous = time;
    samples[i].info.timeStamp += shift;
  }
}

}  // namespace

bool IsFragmented(const OpenedReader& reader) {
  QiroK7MDocInfo info{};
  EXPECT_EQ(QiroK7MReaderGetDocInfo(reader.Handle(), &info), 0u);
  return info.isFragmented == 1;
}

std::string DifferenceOf(const OpenedReader& reader, const ProbedFile& probed,
                         FragmentTimes times) {
  const std::vector<QiroK7MTrack*> tracks = reader.Tracks();
  const bool isFragmented = IsFragmented(reader);
  if (tracks.size() != probed.streams.size()) {
    return std::to_string(tracks.size()) + " tracks, " + std::to_string(probed.streams.size()) +
           " streams";
  }
  for (size_t t = 0; t < tracks.size(); ++t) {
    std::vector<ReadSample> samples = MediaSamples(reader, tracks[t]);
    if (probed.streams[t].codecName.starts_with("pcm_")) {
      samples = Grouped(samples, probed.streams[t]);
    }
    if (times == FragmentTimes::kFromZeroEach) JoinTimes(samples, probed.streams[t]);
    const std::string difference = DifferenceOf(samples, probed.streams[t], isFragmented);
    if (!difference.empty()) return "track " + std::to_string(t) + difference;
  }
  return "";
}

}  // namespace k7mtest
