/// @file remux_plan.h
/// What has to be known about a document before the first byte of its copy is written.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "document.h"
#include "remux_source.h"

namespace qiro::k7m::tool {

/// A track of the copy: its space has to be reserved before its first sample.
struct TrackPlan {
  const Track* track = nullptr;
  TrackLayout layout;
  uint32_t sampleCount = 0;    ///< Without gaps and without samples that have no bytes.
  uint32_t gapCount = 0;       ///< Waits that media follows.
  uint32_t longestHeader = 0;  ///< Bytes of the longest codec header.
  uint64_t byteCount = 0;      ///< Of all samples.
  bool isAllKey = false;       ///< Every sample can be decoded on its own, whatever its flags.
};

/// What the user wants of the copy.
struct RemuxRules {
  EditRule edits = EditRule::kKeep;
  /// The least length of a fragment; none: the copy is a plain document.
  std::optional<MediaTime> fragmentLength;
};

struct RemuxPlan {
  std::vector<TrackPlan> tracks;
  /// Where a fragment ends and the next one begins, in order.
  std::vector<MediaTime> cuts;
  /// The track that decides about them, by its place in `tracks`; none without fragments or
  /// samples.
  std::optional<size_t> leadingTrack;
};

/// Has a track of the plan start later.
/// @param delay  in the track's scale
void DelayTrack(RemuxPlan* plan, size_t track, uint64_t delay);

/// Walks over all samples, without their bytes, and tells what each track needs. Tracks that cannot
/// be copied are named in a message and left out.
RemuxPlan PlanRemux(const Document& document, const RemuxRules& rules);

}  // namespace qiro::k7m::tool
