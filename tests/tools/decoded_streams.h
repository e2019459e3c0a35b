/// @file decoded_streams.h
/// What ffmpeg makes of the streams of a file.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace k7mtest {

enum class Hashing {
  kDecodedFrames,  ///< Size and hash of every decoded frame.
  kPackets,        ///< Size and hash of every packet, undecoded.
};

/// By stream, the picture and sound streams of the file in order, read without its edit lists. PCM
/// sound has no frames of its own (ffmpeg cuts it as the chunks are cut), so its only entry is the
/// hash of the whole. None when ffmpeg fails.
using HashesByStream = std::map<int, std::vector<std::string>>;
std::optional<HashesByStream> HashStreams(const std::string& path, Hashing hashing);

/// Runs a command of the shell; none when it fails.
std::optional<std::string> RunCommand(const std::string& command);
/// The text as one word for the shell.
std::string Quoted(const std::string& text);

}  // namespace k7mtest
