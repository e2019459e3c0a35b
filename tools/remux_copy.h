/// @file remux_copy.h
/// Copies the samples of all tracks, interleaved.
#pragma once

#include <vector>

#include "movie_writer.h"
#include "remux_plan.h"

namespace qiro::k7m::tool {

/// Copies the planned samples in decode order, about half a second of a track at a time, so that a
/// track's samples lie together and a player still finds all tracks close by. Every track is walked
/// by itself and nothing is held back: one sample at a time is in memory.
void CopySamples(const Document& document, EditRule rule, const std::vector<TrackPlan>& plans,
                 MovieWriter* writer);

}  // namespace qiro::k7m::tool
