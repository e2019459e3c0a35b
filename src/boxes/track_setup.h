#pragma once

#include <cstdint>
#include <span>

#include "k7m/track.h"

namespace qiro::k7m::impl {

/// What a new track's boxes are built from.
struct TrackSetup {
  const QiroK7MTrackInfo& info;
  const QiroK7MTrackEntriesInfo& entries;
  std::span<const uint8_t> handlerName;  ///< Terminating 0 included.
  uint32_t trackId;
  uint32_t movieTimeScale;
  uint32_t maxSampleCount;                 ///< Room in each sample table.
  uint32_t lastSampleDuration;             ///< What the last sample lasts; track time scale.
  std::span<const uint32_t> hintTrackIds;  ///< The tracks that a hint track serves.
};

}  // namespace qiro::k7m::impl
