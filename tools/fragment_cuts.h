/// @file fragment_cuts.h
/// Where a fragmented copy is cut.
#pragma once

#include <optional>
#include <vector>

#include "media_time.h"

namespace qiro::k7m::tool {

/// Finds the samples at which fragments begin while it is told the samples of one track in order.
class FragmentCuts {
 public:
  /// @param length  the least length of a fragment; the last one may be shorter
  explicit FragmentCuts(MediaTime length) : length_(length) {}

  void Add(MediaTime time, bool isKey) {
    if (time.scale == 0) return;
    atAnySample_.Add(time, length_);
    if (!isKey) return;
    hasKey_ = true;
    atKeySamples_.Add(time, length_);
  }
  /// @param needsKey  a fragment begins with a key sample, if there are any
  std::vector<MediaTime> Take(bool needsKey) {
    return std::move(needsKey && hasKey_ ? atKeySamples_.cuts : atAnySample_.cuts);
  }

 private:
  struct Finder {
    void Add(MediaTime time, MediaTime length);

    std::optional<MediaTime> begin;  // Of the fragment.
    std::vector<MediaTime> cuts;
  };

  MediaTime length_;
  bool hasKey_ = false;
  Finder atKeySamples_;
  Finder atAnySample_;
};

}  // namespace qiro::k7m::tool
