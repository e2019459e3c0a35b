#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include "fragment_expectations.h"
#include "support/counted_buffer.h"
#include "support/opened_reader.h"

namespace k7mtest {
namespace {

Bytes FileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {}));
}

/// The hashes of the frames of one stream as another program decodes them, edit lists ignored.
std::vector<std::string> FrameHashes(const std::string& path, const std::string& stream) {
  const std::string command = std::string(K7M_FFMPEG) + " -v error -xerror -ignore_editlist 1 -i " +
                              path + " -map 0:" + stream + " -f framehash -";
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

QiroK7MTrack* CopyTrack(OpenedWriter& writer, QiroK7MTrack* from) {
  QiroK7MTrackInfo info = InfoOf(from);
  info.handlerNameLength = 0;
  const QiroK7MTrackEntriesInfo entries = EntriesOf(from);
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

/// The media of a file with one video and one audio track, `perFragment` samples in a fragment.
Bytes FragmentedCopy(const std::string& path, size_t perFragment) {
  OpenedReader reader(FileBytes(path));
  EXPECT_EQ(reader.Result(), 0u);
  OpenedWriter writer(FragmentedInfo());
  const std::vector<QiroK7MTrack*> from = reader.Tracks();
  std::vector<QiroK7MTrack*> to;
  for (QiroK7MTrack* track : from) to.push_back(CopyTrack(writer, track));
  size_t count = 0;
  for (const ReadSample& sample : MediaSamples(reader)) {
    const size_t index = sample.track == from[0] ? 0 : 1;
    writer.Add(to[index], {.time = sample.info.timeStamp,
                           .data = sample.data,
                           .flags = sample.info.flags,
                           .compositionOffset = sample.info.compositionOffset});
    if (++count % perFragment == 0) writer.Flush();
  }
  EXPECT_EQ(count, 138u);
  return writer.Finish();
}

TEST(FragmentedCopy, DecodesToTheSameFrames) {
  const std::string original = std::string(K7M_TEST_DATA) + "/h264-bframes-aac.mp4";
  for (const size_t perFragment : {1000u, 30u, 1u}) {
    SCOPED_TRACE(perFragment);
    const Bytes file = FragmentedCopy(original, perFragment);
    const std::string path = ::testing::TempDir() + "/k7m-fragmented-copy.mp4";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(file.Data()),
               static_cast<std::streamsize>(file.Size()));
    for (const char* stream : {"v", "a"}) {
      const std::vector<std::string> expected = FrameHashes(original, stream);
      EXPECT_GE(expected.size(), 50u);
      EXPECT_EQ(FrameHashes(path, stream), expected) << stream;
    }
    std::remove(path.c_str());
  }
}

}  // namespace
}  // namespace k7mtest
