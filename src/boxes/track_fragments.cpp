#include "boxes/track_fragments.h"

#include <algorithm>
#include <iterator>

#include "boxes/fragment_boxes.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

void TrackFragments::Reserve(size_t count) { ReserveMore(entries_, count); }

void TrackFragments::Add(const TrafBox& traf, uint64_t moofOffset) {
  const uint64_t start = traf.GetFirstSampleTimeStamp();
  const uint64_t end = traf.GetLastSampleEndTime();
  const uint64_t latestEnd = entries_.empty() ? end : std::max(entries_.back().latestEnd, end);
  const bool isFirstOfMoof = entries_.empty() || moofOffset != lastMoofOffset_;
  const size_t firstOfMoof = isFirstOfMoof ? Size() : entries_.back().firstOfMoof;
  isInOrder_ =
      isInOrder_ && !traf.TimesWrap() &&
      (entries_.empty() || (entries_.back().startTime <= start && entries_.back().endTime <= end));
  entries_.push_back({&traf, start, end, latestEnd, firstOfMoof});
  sampleCount_ += traf.GetSampleCount();
  lastMoofOffset_ = moofOffset;
}

void TrackFragments::ForgetBehind(uint64_t offset) {
  while (!entries_.empty() && entries_.back().traf->GetBeginOffset() > offset) {
    sampleCount_ -= entries_.back().traf->GetSampleCount();
    entries_.pop_back();
  }
  lastMoofOffset_.reset();
}

size_t TrackFragments::FindLastCovering(uint64_t time, size_t begin) const {
  const auto first = entries_.begin() + static_cast<ptrdiff_t>(begin);
  const auto covers = [time](const Entry& entry) {
    return entry.startTime <= time && time <= entry.endTime;
  };
  auto found = entries_.end();
  if (isInOrder_) {
    const auto after = std::partition_point(
        first, entries_.end(), [time](const Entry& entry) { return entry.startTime <= time; });
    if (after != first && covers(*(after - 1))) {
      found = after - 1;
    }
  } else {
    const auto reverseEnd = std::make_reverse_iterator(first);
    const auto last = std::find_if(entries_.rbegin(), reverseEnd, covers);
    found = last == reverseEnd ? entries_.end() : last.base() - 1;
  }
  return static_cast<size_t>(found - entries_.begin());
}

size_t TrackFragments::FindCovering(uint64_t time, size_t begin) const {
  const size_t last = FindLastCovering(time, begin);
  if (last == Size()) {
    return last;
  }
  const size_t first = entries_[last].firstOfMoof;
  if (!isInOrder_) {
    return first;
  }
  // Those of the 'moof' that end before the time hold nothing from then on.
  const auto found =
      std::partition_point(entries_.begin() + static_cast<ptrdiff_t>(first),
                           entries_.begin() + static_cast<ptrdiff_t>(last),
                           [time](const Entry& entry) { return entry.endTime < time; });
  return static_cast<size_t>(found - entries_.begin());
}

size_t TrackFragments::FindFirstEndingAfter(uint64_t time) const {
  const auto found =
      std::partition_point(entries_.begin(), entries_.end(),
                           [time](const Entry& entry) { return entry.latestEnd <= time; });
  return static_cast<size_t>(found - entries_.begin());
}

}  // namespace qiro::k7m::impl
