/// @file ffprobe_packets.h
/// What ffprobe says about the packets of a file.
#ifndef K7M_TESTS_READER_FFPROBE_PACKETS_H
#define K7M_TESTS_READER_FFPROBE_PACKETS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace k7mtest {

struct ProbedPacket {
  uint64_t size = 0;
  std::optional<int64_t> dts;
  std::optional<int64_t> pts;
  bool isKey = false;
  std::string md5;
};

struct ProbedStream {
  std::string codecName;
  bool isPicture = false;  // A cover picture from the metadata, which is no track.
  uint32_t timeScale = 0;
  std::vector<ProbedPacket> packets;
};

struct ProbedFile {
  bool ran = false;        // ffprobe could be started.
  bool couldRead = false;  // It found at least one stream and ended well.
  std::vector<ProbedStream> streams;
};

/// Runs ffprobe without edit lists on a file.
ProbedFile Probe(const std::string& path);

}  // namespace k7mtest

#endif
