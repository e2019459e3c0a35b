/// @file recording_cut.h
/// A K7R file without what no program can use, and without what is not wanted of it.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

namespace qiro::k7m::tool {

/// Keeps all complete fragments.
inline constexpr uint64_t kKeepAll = std::numeric_limits<uint64_t>::max();

struct RecordingCut {
  uint64_t byteCount = 0;     ///< Cut off at the end of the file.
  uint64_t lastFragment = 0;  ///< Where the last one that was kept begins; 0 when none was.
};

/// Cuts the file where its complete fragments end, and brings the movie box up to date. A file of
/// fragments that are no K7R fragments is left alone: nothing of it would be kept.
/// @param keepLimit  a fragment that begins behind this byte is cut off as well
RecordingCut CutRecording(const std::string& path, uint64_t keepLimit);

/// "path: 12 bytes cut off; the last fragment begins at byte 3456"
std::string CutText(const std::string& path, const RecordingCut& cut);

}  // namespace qiro::k7m::tool
