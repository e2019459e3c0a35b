/// @file fragment_builder.h
/// The boxes of fragmented files, from records.
#ifndef K7M_TESTS_SUPPORT_FRAGMENT_BUILDER_H
#define K7M_TESTS_SUPPORT_FRAGMENT_BUILDER_H

#include <vector>

#include "movie_builder.h"

namespace k7mtest {

/// Flags of a 'tfhd'.
inline constexpr uint32_t kTfhdBase = 0x01;
inline constexpr uint32_t kTfhdDescription = 0x02;
inline constexpr uint32_t kTfhdDuration = 0x08;
inline constexpr uint32_t kTfhdSize = 0x10;
inline constexpr uint32_t kTfhdSampleFlags = 0x20;
inline constexpr uint32_t kTfhdBaseIsMoof = 0x020000;

/// Flags of a 'trun'.
inline constexpr uint32_t kTrunOffset = 0x001;
inline constexpr uint32_t kTrunFirstFlags = 0x004;
inline constexpr uint32_t kTrunDuration = 0x100;
inline constexpr uint32_t kTrunSize = 0x200;
inline constexpr uint32_t kTrunFlags = 0x400;
inline constexpr uint32_t kTrunComposition = 0x800;

/// 'mvex' with a 'trex' for each record.
inline Bytes Mvex(const std::vector<Trex>& defaults) {
  Bytes boxes;
  for (const Trex& trex : defaults) boxes.Append(FullBox("trex", 0, 0, trex));
  return Box("mvex", boxes);
}

/// 'moof' with an 'mfhd' and the given boxes.
template <class... Boxes>
Bytes Moof(const Boxes&... boxes) {
  return Box("moof", FullBox("mfhd", 0, 0, Mfhd{}), boxes...);
}

/// 'traf' with a 'tfhd' and the given boxes.
template <class... Boxes>
Bytes Traf(uint32_t tfhdFlags, const Tfhd& tfhd, const Boxes&... boxes) {
  return Box("traf", FullBox("tfhd", 0, tfhdFlags, tfhd), boxes...);
}

/// A 'trun' of `count` samples that are all as the defaults say.
inline Bytes DefaultRun(uint32_t count) { return FullBox("trun", 0, 0, Trun{.count = count}); }

/// A movie of tracks without samples whose fragments take one default each; their ids count from 1.
inline Movie FragmentedMovie(std::vector<Track> tracks, const Trex& defaults = {}) {
  Movie movie;
  std::vector<Trex> all;
  for (uint32_t i = 0; i < tracks.size(); ++i) {
    all.push_back(defaults);
    all.back().trackId = i + 1;
  }
  movie.tracks = std::move(tracks);
  movie.moreInMoov = Mvex(all);
  return movie;
}

}  // namespace k7mtest

#endif
