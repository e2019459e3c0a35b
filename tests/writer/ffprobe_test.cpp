#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "random_session.h"

namespace k7mtest {
namespace {

/// What ffprobe says about a packet. Times are in the track's scale.
struct Packet {
  size_t stream = 0;
  int64_t pts = 0;
  int64_t dts = 0;
  size_t size = 0;
  bool isKey = false;
  bool isDiscarded = false;
  friend bool operator==(const Packet&, const Packet&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Packet& p) {
    return out << "{stream " << p.stream << " pts " << p.pts << " dts " << p.dts << " size "
               << p.size << (p.isKey ? " key" : "") << (p.isDiscarded ? " discarded}" : "}");
  }
};

std::vector<std::vector<Packet>> Probe(const Bytes& file, const std::string& options,
                                       size_t trackCount) {
  // ctest may run several of these tests at a time.
  const std::string path = ::testing::TempDir() + "/k7m-ffprobe-" +
                           ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".mp4";
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(file.Data()), static_cast<std::streamsize>(file.Size()));
  const std::string command = std::string(K7M_FFPROBE) + " -v quiet " + options +
                              " -show_packets -show_entries " +
                              "packet=stream_index,pts,dts,size,flags -of csv=p=0 " + path;
  std::vector<std::vector<Packet>> packets(trackCount);
  FILE* output = popen(command.c_str(), "r");
  std::array<char, 256> line;
  while (output != nullptr && std::fgets(line.data(), line.size(), output) != nullptr) {
    Packet packet;
    char comma = 0;
    std::string flags;
    std::istringstream fields(line.data());
    fields >> packet.stream >> comma >> packet.pts >> comma >> packet.dts >> comma >> packet.size >>
        comma >> flags;
    packet.isKey = flags.find('K') == 0;
    packet.isDiscarded = flags.find('D') == 1;
    if (fields.fail() || packet.stream >= trackCount) {
      ADD_FAILURE() << "not understood: " << line.data();
      break;
    }
    packets[packet.stream].push_back(packet);
  }
  EXPECT_NE(output, nullptr);
  if (output != nullptr) {
    EXPECT_EQ(pclose(output), 0) << command;
  }
  std::remove(path.c_str());
  return packets;
}

std::vector<Packet> Expected(const ModelTrack& track, size_t stream) {
  std::vector<Packet> packets;
  for (const ModelSample& sample : track.Samples()) {
    Packet packet;
    packet.stream = stream;
    packet.dts = static_cast<int64_t>(sample.stored);
    packet.pts = packet.dts + static_cast<int32_t>(sample.compositionOffset);
    packet.size = sample.data.Size();
    packet.isKey = (sample.flags & 0xFF) == kKey;
    packets.push_back(packet);
  }
  return packets;
}

TEST(Ffprobe, FindsThePacketsOfRandomSessions) {
  const SessionOptions options{.mediaTypes = {"vide"},
                               .timeScales = {1000, 600, 25},
                               .hasEqualTimes = false,
                               .hasNegativeOffsets = false,
                               .startsWithKeys = true};
  size_t compared = 0;
  for (uint32_t seed = 1; seed <= 12 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomSession session(seed, options);
    session.Run();
    const Bytes file = session.Writer().Finish();
    const auto found = Probe(file, "-ignore_editlist 1", session.Model().size());
    for (size_t i = 0; i < found.size(); ++i) {
      EXPECT_EQ(found[i], Expected(session.Model()[i], i));
      compared += found[i].size();
    }
  }
  EXPECT_GT(compared, 100u);
}

/// The presentation times of the packets that are not to be discarded; the last `count` of them.
std::vector<int64_t> LastTimes(const std::vector<Packet>& packets, size_t count) {
  std::vector<int64_t> times;
  for (const Packet& packet : packets) {
    if (!packet.isDiscarded) times.push_back(packet.pts);
  }
  times.erase(times.begin(),
              times.end() - static_cast<std::ptrdiff_t>(std::min(count, times.size())));
  return times;
}

TEST(Ffprobe, AppliesTheEditListOfATrackWithoutGaps) {
  OpenedWriter writer(600);
  std::vector<QiroK7MTrack*> tracks = {writer.AddTrack({.gapCount = 0}),
                                       writer.AddTrack({.timeScale = 90000, .gapCount = 0})};
  for (QiroK7MTrack* track : tracks) {
    writer.Describe(track, "abcd");  // No coding whose packets would be looked into.
    for (const uint64_t time : {uint64_t{0}, uint64_t{40}, uint64_t{80}, uint64_t{500}})
      writer.Add(track, time, kKey);
  }
  const auto found = Probe(writer.Finish(), "", 2);
  for (const auto& packets : found) {
    ASSERT_EQ(packets.size(), 4u);
    EXPECT_EQ(LastTimes(packets, 4), (std::vector<int64_t>{0, 40, 80, 500}));
  }
}

// ffprobe takes the places of an edit list that are reserved but unused for edits, and an edit of
// length 0 for one without end: more packets come than there are samples. The samples themselves
// come last.

TEST(Ffprobe, ALateTrackStartsAtItsTime) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack({.gapCount = 1});
  writer.Describe(track, "abcd");
  for (const uint64_t time : {uint64_t{500}, uint64_t{540}, uint64_t{580}})
    writer.Add(track, time, kKey);
  EXPECT_EQ(LastTimes(Probe(writer.Finish(), "", 1)[0], 3), (std::vector<int64_t>{500, 540, 580}));
}

TEST(Ffprobe, SamplesBehindAGapComeAtTheirTimes) {
  OpenedWriter writer;
  QiroK7MTrack* track = writer.AddTrack({.gapCount = 1});
  writer.Describe(track, "abcd");
  writer.Add(track, 0, kKey);
  writer.Add(track, 40, kKey);
  writer.Add(track, 80, kGap);
  writer.Add(track, 1000, kKey);
  writer.Add(track, 1040, kKey);
  const auto packets = Probe(writer.Finish(), "", 1)[0];
  ASSERT_GE(packets.size(), 4u);
  EXPECT_EQ(packets[0].pts, 0);
  EXPECT_EQ(packets[1].pts, 40);
  EXPECT_EQ(LastTimes(packets, 2), (std::vector<int64_t>{1000, 1040}));
}

}  // namespace
}  // namespace k7mtest
