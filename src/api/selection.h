#pragma once

#include <vector>

#include "api/frame.h"

namespace qiro::k7m::impl {

/// Error 10 when a caller's time scale is 0.
void RequireTimeScales(uint32_t startScale, uint32_t endScale);
/// Error 20 for a null array with a count.
void RequireArray(const void* array, uint32_t count);
/// The tracks of a caller's array. Error 20 for a null array with a count and for a null track.
std::vector<Track*> TracksOf(QiroK7MTrack* const* tracks, uint32_t count);
/// The tracks of the given media types; a null array selects all, an array without entries none.
std::vector<Track*> SelectTracks(const Reader& reader, const uint32_t* mediaTypes, uint32_t count);

}  // namespace qiro::k7m::impl
