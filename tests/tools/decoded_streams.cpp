#include "decoded_streams.h"

#include <cstdio>
#include <sstream>

namespace k7mtest {
namespace {

constexpr const char* kRead = "ffmpeg -nostdin -v error -ignore_editlist 1 -i ";

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

struct Stream {
  std::string codec;
  bool isSound = false;
};

// Pictures and sounds in the order of the file; a cover is no stream of samples.
std::vector<Stream> StreamsOf(const std::string& path) {
  const std::optional<std::string> text = RunCommand(
      "ffprobe -v error -show_entries stream=codec_type,codec_name:stream_disposition="
      "attached_pic -of compact=p=0:nk=1 " +
      Quoted(path));
  std::vector<Stream> streams;
  for (const std::string& line : Lines(text.value_or(""))) {
    std::istringstream fields(line);
    std::string codec;
    std::string type;
    std::string isCover;
    std::getline(fields, codec, '|');
    std::getline(fields, type, '|');
    std::getline(fields, isCover, '|');
    const bool isSound = type == "audio";
    if ((isSound || type == "video") && isCover == "0") streams.push_back({codec, isSound});
  }
  return streams;
}

}  // namespace

std::optional<HashesByStream> HashStreams(const std::string& path, Hashing hashing) {
  const std::string coding = hashing == Hashing::kPackets ? " -c copy" : "";
  HashesByStream hashes;
  int pictureCount = 0;
  int soundCount = 0;
  for (const Stream& stream : StreamsOf(path)) {
    const bool isPcm = stream.codec.rfind("pcm_", 0) == 0;
    const std::string chosen = stream.isSound ? "a:" + std::to_string(soundCount++)
                                              : "V:" + std::to_string(pictureCount++);
    const std::optional<std::string> text =
        RunCommand(kRead + Quoted(path) + " -map 0:" + chosen + coding + " -vsync passthrough -f " +
                   (isPcm ? "md5 -" : "framehash -"));
    if (!text) return std::nullopt;
    std::vector<std::string>& own = hashes[static_cast<int>(hashes.size())];
    for (const std::string& line : Lines(*text)) {
      if (line.empty() || line[0] == '#') continue;
      // stream, decode time, time, duration, size, hash: the times are compared elsewhere.
      size_t begin = 0;
      for (int i = 0; i < 4 && !isPcm; ++i) begin = line.find(',', begin) + 1;
      // Behind that stands side data, such as what one needs to decrypt the packet.
      const size_t end = isPcm ? line.size() : line.find(',', line.find(',', begin) + 1);
      own.push_back(line.substr(begin, end - begin));
    }
  }
  return hashes;
}

std::optional<std::string> RunCommand(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return std::nullopt;
  std::string text;
  char buffer[4096];
  for (size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    text.append(buffer, count);
  }
  if (pclose(pipe) != 0) return std::nullopt;
  return text;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char character : text) {
    if (character == '\'') quoted += "'\\'";
    quoted += character;
  }
  return quoted + "'";
}

}  // namespace k7mtest
