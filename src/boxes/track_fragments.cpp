#include "boxes/track_fragments.h"

#include <algorithm>
#include <iterator>

namespace qiro::k7m::impl {

void TrackFragment::Lengthen(TrackRun& run) {
  run.UpdateSampleTimeStamps(endTime);
  timesWrap = timesWrap || run.EndTime() < endTime;
  endTime = run.EndTime();
  sampleCount += run.GetSampleCount();
}

size_t TrackFragment::FindRunEndingAtOrAfter(uint64_t time) const {
  if (timesWrap) {
    return 0;
  }
  const auto* const found = std::partition_point(
      runs, runs + runCount, [time](const TrackRun& run) { return run.EndTime() < time; });
  return static_cast<size_t>(found - runs);
}

void TrackFragments::Announce(uint64_t moofNumber, uint64_t endTime) {
  const size_t earlier = announced_.moofNumber == moofNumber ? announced_.count : 0;
  entries_.MakeRoom(earlier + 1);
  announced_ = {moofNumber, endTime, earlier + 1};
}

uint64_t TrackFragments::NextStartTime(uint64_t moofNumber) const {
  if (announced_.moofNumber == moofNumber) {
    return announced_.endTime;
  }
  return entries_.empty() ? 0 : Last().endTime;
}

void TrackFragments::Add(const TrackFragment& fragment, uint64_t moofOffset) {
  Entry entry{fragment, fragment.endTime, Size(), moofOffset};
  isInOrder_ = isInOrder_ && !fragment.timesWrap;
  if (!entries_.empty()) {
    const Entry& last = Last();
    entry.latestEnd = std::max(last.latestEnd, fragment.endTime);
    entry.firstOfMoof = moofOffset == last.moofOffset ? last.firstOfMoof : Size();
    isInOrder_ =
        isInOrder_ && last.startTime <= fragment.startTime && last.endTime <= fragment.endTime;
  }
  entries_.push_back(entry);
  sampleCount_ += fragment.sampleCount;
}

void TrackFragments::ForgetBehind(uint64_t offset) {
  while (!entries_.empty() && Last().moofOffset > offset) {
    sampleCount_ -= Last().sampleCount;
    entries_.pop_back();
  }
  announced_ = {};
}

size_t TrackFragments::FindLastCovering(uint64_t time, size_t begin) const {
  const Entry* const first = entries_.begin() + begin;
  const auto covers = [time](const Entry& entry) {
    return entry.startTime <= time && time <= entry.endTime;
  };
  const Entry* found = entries_.end();
  if (isInOrder_) {
    const Entry* const after = std::partition_point(
        first, entries_.end(), [time](const Entry& entry) { return entry.startTime <= time; });
    if (after != first && covers(*(after - 1))) {
      found = after - 1;
    }
  } else {
    const auto reverseEnd = std::make_reverse_iterator(first);
    const auto last = std::find_if(std::make_reverse_iterator(entries_.end()), reverseEnd, covers);
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
      std::partition_point(entries_.begin() + first, entries_.begin() + last,
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
