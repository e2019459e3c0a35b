#include "decoded_copies.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include "support/counted_buffer.h"
#include "support/opened_reader.h"

namespace k7mtest {

Bytes FileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {}));
}

namespace {

/// The hashes of the frames of one stream as another program sees them, edit lists ignored.
std::vector<std::string> FrameHashes(const std::string& path, const std::string& stream,
                                     Compared what) {
  const std::string command = std::string(K7M_FFMPEG) + " -v error -xerror -ignore_editlist 1 -i " +
                              path + " -map 0:" + stream +
                              (what == Compared::kPackets ? " -c copy" : "") + " -f framehash -";
  std::unique_ptr<FILE, int (*)(FILE*)> output(popen(command.c_str(), "r"), [](FILE* pipe) {
    const int status = pclose(pipe);
    EXPECT_EQ(status, 0);
    return status;
  });
  std::vector<std::string> hashes;
  std::array<char, 512> line;
  while (std::fgets(line.data(), line.size(), output.get()) != nullptr) {
    const std::string text(line.data());
    if (text[0] != '#') hashes.push_back(text.substr(text.rfind(',') + 1));
  }
  return hashes;
}

}  // namespace

QiroK7MTrack* CopyTrack(OpenedWriter& writer, QiroK7MTrack* from, uint32_t gapCount) {
  QiroK7MTrackInfo info = InfoOf(from);
  info.handlerNameLength = 0;
  QiroK7MTrackEntriesInfo entries = EntriesOf(from);
  entries.gapCount += gapCount;
  QiroK7MTrack* to = nullptr;
  EXPECT_EQ(QiroK7MWriterAddTrack(writer.Handle(), &info, &entries, 0, nullptr, &to), 0u);
  QiroK7MSampleDescriptor* source = DescriptorsOf(from).at(0);
  QiroK7MSampleDescInfo common{};
  EXPECT_EQ(QiroK7MSampleDescriptorGetInfo(source, &common), 0u);
  Bytes codecHeader = Bytes().Fill(common.codecHeaderDataLength);
  EXPECT_EQ(QiroK7MSampleDescriptorCopyCodecHeaderData(source, codecHeader.Data()), 0u);
  CountedBuffer buffer(codecHeader);
  QiroK7MSampleDescriptor* added = nullptr;
  if (info.mediaType == Code("vide")) {
    QiroK7MVideoSampleDescInfo video{};
    EXPECT_EQ(QiroK7MSampleDescriptorGetVideoInfo(source, &video), 0u);
    EXPECT_EQ(
        QiroK7MWriterAddVideoSampleDescriptor(writer.Handle(), to, &video, buffer.Record(), &added),
        0u);
  } else {
    QiroK7MAudioSampleDescInfo audio{};
    EXPECT_EQ(QiroK7MSampleDescriptorGetAudioInfo(source, &audio), 0u);
    EXPECT_EQ(
        QiroK7MWriterAddAudioSampleDescriptor(writer.Handle(), to, &audio, buffer.Record(), &added),
        0u);
  }
  return to;
}

void ExpectSameFrames(const Bytes& copy, const std::string& original, Compared what) {
  const std::string path = ::testing::TempDir() + "/k7m-decoded-copy-" + std::to_string(getpid());
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(copy.Data()), static_cast<std::streamsize>(copy.Size()));
  for (const char* stream : {"v", "a"}) {
    const std::vector<std::string> expected = FrameHashes(original, stream, what);
    EXPECT_GE(expected.size(), 50u);
    EXPECT_EQ(FrameHashes(path, stream, what), expected) << stream;
  }
  std::remove(path.c_str());
}

}  // namespace k7mtest
