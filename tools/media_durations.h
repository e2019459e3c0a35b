/// @file media_durations.h
/// How long the media of tracks last, to the unit.
#pragma once

#include <cstdint>
#include <vector>

#include "file_stream.h"

namespace qiro::k7m::tool {

/// The durations in the 'mdhd' boxes of a file, in its order of tracks and in the scales of the
/// tracks. The library tells those of the presentation, which are rounded to movie scale. 0 for a
/// track without that box.
std::vector<uint64_t> ListMediaDurations(FileStream* file);

}  // namespace qiro::k7m::tool
