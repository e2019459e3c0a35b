#include "ffprobe_packets.h"

#include <sys/wait.h>

#include <cstdio>
#include <map>
#include <sstream>

namespace k7mtest {

namespace {

using Fields = std::map<std::string, std::string>;

/// "packet|codec_type=video|stream_index=0|..." as kind and fields.
std::string Split(const std::string& line, Fields& fields) {
  std::istringstream in(line);
  std::string kind;
  std::getline(in, kind, '|');
  for (std::string field; std::getline(in, field, '|');) {
    const size_t equals = field.find('=');
    if (equals != std::string::npos) fields[field.substr(0, equals)] = field.substr(equals + 1);
  }
  return kind;
}

std::optional<int64_t> NumberIn(const Fields& fields, const std::string& name) {
  const auto found = fields.find(name);
  if (found == fields.end() || found->second == "N/A") return std::nullopt;
  return std::stoll(found->second);
}

std::string TextIn(const Fields& fields, const std::string& name) {
  const auto found = fields.find(name);
  return found == fields.end() ? "" : found->second;
}

ProbedStream& StreamAt(ProbedFile& file, const Fields& fields, const char* name) {
  const auto index = static_cast<size_t>(NumberIn(fields, name).value_or(0));
  if (file.streams.size() <= index) file.streams.resize(index + 1);
  return file.streams[index];
}

void TakeLine(ProbedFile& file, const std::string& line) {
  Fields fields;
  const std::string kind = Split(line, fields);
  if (kind == "stream") {
    ProbedStream& stream = StreamAt(file, fields, "index");
    stream.codecName = TextIn(fields, "codec_name");
    stream.isPicture = NumberIn(fields, "disposition:attached_pic") == 1;
    const std::string timeBase = TextIn(fields, "time_base");
    stream.timeScale = static_cast<uint32_t>(std::stoul(timeBase.substr(timeBase.find('/') + 1)));
  } else if (kind == "packet") {
    ProbedPacket packet;
    packet.size = static_cast<uint64_t>(NumberIn(fields, "size").value_or(0));
    packet.dts = NumberIn(fields, "dts");
    packet.pts = NumberIn(fields, "pts");
    packet.isKey = TextIn(fields, "flags").starts_with('K');
    const std::string hash = TextIn(fields, "data_hash");
    packet.md5 = hash.substr(hash.find(':') + 1);
    StreamAt(file, fields, "stream_index").packets.push_back(packet);
  }
}

}  // namespace

ProbedFile Probe(const std::string& path) {
  ProbedFile file;
  // The entries keep side data out, whose fields have names of their own.
  const std::string command =
      "ffprobe -v quiet -ignore_editlist 1 -show_streams -show_packets -show_data_hash MD5 -of "
      "compact -show_entries "
      "stream=index,codec_name,time_base:stream_disposition=attached_pic:packet=stream_index,pts,"
      "dts,size,"
      "flags,data_hash '" +
      path + "' </dev/null 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return file;
  // Side data of a packet is a line of its own, and what else belongs to the packet goes on in a
  // line that begins with the separator.
  std::string line;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
    if (c == '\n') {
      const int next = std::fgetc(pipe);
      if (next != EOF) std::ungetc(next, pipe);
      if (next == '|') continue;
      TakeLine(file, line);
      line.clear();
    } else {
      line += static_cast<char>(c);
    }
  }
  std::erase_if(file.streams, [](const ProbedStream& stream) { return stream.isPicture; });
  const int status = pclose(pipe);
  constexpr int kShellFoundNoProgram = 127;
  file.ran = WIFEXITED(status) && WEXITSTATUS(status) != kShellFoundNoProgram;
  file.couldRead = file.ran && WEXITSTATUS(status) == 0 && !file.streams.empty();
  return file;
}

}  // namespace k7mtest
