#include "api/selection.h"

#include <span>

namespace qiro::k7m::impl {

void RequireTimeScales(uint32_t startScale, uint32_t endScale) {
  ThrowIf(startScale == 0 || endScale == 0, kQiroK7MErrorZeroTimeScale);
}

void RequireArray(const void* array, uint32_t count) {
  ThrowIf(array == nullptr && count != 0, kQiroK7MErrorInvalidArgument);
}

std::vector<Track*> TracksOf(QiroK7MTrack* const* tracks, uint32_t count) {
  RequireArray(tracks, count);
  std::vector<Track*> result;
  result.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    Require(tracks[i]);
    result.push_back(&Impl(tracks[i]));
  }
  return result;
}

std::vector<Track*> SelectTracks(const Reader& reader, const uint32_t* mediaTypes, uint32_t count) {
  return mediaTypes == nullptr ? reader.GetTracks()
                               : reader.FilterTracksByMediaType(std::span(mediaTypes, count));
}

}  // namespace qiro::k7m::impl
