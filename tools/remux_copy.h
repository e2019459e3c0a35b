/// @file remux_copy.h
/// Copies the samples of all tracks, interleaved.
#pragma once

#include "movie_writer.h"
#include "remux_plan.h"

namespace qiro::k7m::tool {

/// How the samples of tracks follow each other.
enum class Interleaving {
  kHalfSeconds,  ///< About half a second of a track at a time, so that its samples lie together and
                 ///< a player still finds all tracks close by.
  kSamples,      ///< Every sample in decode order across the tracks.
};

/// Copies the planned samples in decode order. Every track is walked
/// by itself and nothing is held back: one sample at a time is in memory. At every cut of the plan
/// a fragment ends: what is earlier lies before it, in all tracks.
void CopySamples(const Document& document, const RemuxPlan& plan, Interleaving interleaving,
                 MovieWriter* writer);

}  // namespace qiro::k7m::tool
