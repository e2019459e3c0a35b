/// @file track_match.h
/// Which track of a recording goes on with which track of a document.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "document.h"
#include "remux_plan.h"

namespace qiro::k7m::tool {

struct TrackMatch {
  size_t track = 0;                  ///< In the recording, from 0 in file order.
  std::vector<size_t> descriptions;  ///< By description of the document: that of the recording.
};

/// Matches the tracks of the plan, in its order, by media type and order: the second sound track
/// goes on with the second one. Throws when a track with samples has no match, another time scale
/// or a description that its match has not. Tracks of the recording that stay behind are named in
/// a message.
std::vector<std::optional<TrackMatch>> MatchTracks(const Document& document, const RemuxPlan& plan,
                                                   const Document& recording);

}  // namespace qiro::k7m::tool
