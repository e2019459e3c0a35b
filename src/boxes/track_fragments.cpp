#include "boxes/track_fragments.h"

#include <algorithm>

#include "boxes/fragment_boxes.h"

namespace qiro::k7m::impl {

void TrackFragments::Add(const TrafBox& traf, uint64_t moofOffset) {
  const uint64_t start = traf.GetFirstSampleTimeStamp();
  const uint64_t end = traf.GetLastSampleEndTime();
  const uint64_t latestEnd = entries_.empty() ? end : std::max(entries_.back().latestEnd, end);
  isInOrder_ =
      isInOrder_ && start <= end &&
      (entries_.empty() || (entries_.back().startTime <= start && entries_.back().endTime <= end));
  entries_.push_back({&traf, start, end, latestEnd, moofOffset});
  sampleCount_ += traf.GetSampleCount();
}

size_t TrackFragments::FindCovering(uint64_t time) const {
  const auto covers = [time](const Entry& entry) {
    return entry.startTime <= time && time <= entry.endTime;
  };
  size_t found = Size();
  if (isInOrder_) {
    const auto after =
        std::partition_point(entries_.begin(), entries_.end(),
                             [time](const Entry& entry) { return entry.startTime <= time; });
    if (after != entries_.begin() && covers(*(after - 1))) {
      found = static_cast<size_t>(after - entries_.begin()) - 1;
    }
  } else {
    const auto last = std::find_if(entries_.rbegin(), entries_.rend(), covers);
    found = last == entries_.rend() ? Size() : static_cast<size_t>(entries_.rend() - last) - 1;
  }
  while (found != Size() && found > 0 &&
         entries_[found - 1].moofOffset == entries_[found].moofOffset) {
    --found;
  }
  return found;
}

size_t TrackFragments::FindFirstEndingAfter(uint64_t time) const {
  const auto found =
      std::partition_point(entries_.begin(), entries_.end(),
                           [time](const Entry& entry) { return entry.latestEnd <= time; });
  return static_cast<size_t>(found - entries_.begin());
}

}  // namespace qiro::k7m::impl
