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
  latestEnds_.MakeRoom(earlier + 1);
  announced_ = {moofNumber, endTime, earlier + 1};
}

uint64_t TrackFragments::NextStartTime(uint64_t moofNumber) const {
  if (announced_.moofNumber == moofNumber) {
    return announced_.endTime;
  }
  return entries_.empty() ? 0 : Last().endTime;
}

void TrackFragments::Add(const TrackFragment& fragment, uint64_t moofOffset) {
  Entry entry{fragment, Size(), moofOffset};
  uint64_t latestEnd = fragment.endTime;
  isInOrder_ = isInOrder_ && !fragment.timesWrap;
  if (!entries_.empty()) {
    const Entry& last = Last();
    isDisjoint_ = isDisjoint_ && last.endTime <= fragment.startTime;
    latestEnd = std::max(latestEnds_[Size() - 1], latestEnd);
    entry.firstOfMoof = moofOffset == last.moofOffset ? last.firstOfMoof : Size();
    isInOrder_ =
        isInOrder_ && last.startTime <= fragment.startTime && last.endTime <= fragment.endTime;
  }
  entries_.push_back(entry);
  latestEnds_.push_back(latestEnd);
  sampleCount_ += fragment.sampleCount;
}

void TrackFragments::ForgetBehind(uint64_t offset) {
  while (!entries_.empty() && Last().moofOffset > offset) {
    sampleCount_ -= Last().sampleCount;
    entries_.pop_back();
    latestEnds_.pop_back();
  }
  announced_ = {};
}

size_t TrackFragments::FindLastCovering(uint64_t time, size_t begin) const {
  const auto covers = [time](const Entry& entry) {
    return entry.startTime <= time && time <= entry.endTime;
  };
  if (isInOrder_) {
    const size_t after = CountStartedBy(time);
    return after > begin && covers(entries_[after - 1]) ? after - 1 : Size();
  }
  const auto reverseEnd = std::make_reverse_iterator(entries_.begin() + begin);
  const auto last = std::find_if(std::make_reverse_iterator(entries_.end()), reverseEnd, covers);
  return last == reverseEnd ? Size() : static_cast<size_t>(last.base() - 1 - entries_.begin());
}

size_t TrackFragments::CountStartedBy(uint64_t time) const {
  const auto isLater = [time](const Entry& entry) { return entry.startTime > time; };
  // Those before it have ended, and so have started.
  const size_t ending = FindFirstEndingAfter(time);
  if (ending == Size() || isLater(entries_[ending])) {
    return ending;
  }
  if (isDisjoint_) {
    return ending + 1;
  }
  const auto* const after =
      std::partition_point(entries_.begin() + ending + 1, entries_.end(),
                           [&](const Entry& entry) { return !isLater(entry); });
  return static_cast<size_t>(after - entries_.begin());
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
  const uint64_t* const first = latestEnds_.begin();
  const uint64_t* const end = latestEnds_.end();
  if (first == end || end[-1] <= time) {
    return Size();
  }
  // Most fragments last equally long, so that it is near where it would be then: from there the
  // steps grow until it lies between two.
  const double share = static_cast<double>(time) / static_cast<double>(end[-1]);
  const uint64_t* low = first + static_cast<size_t>(share * static_cast<double>(Size() - 1));
  const uint64_t* high = low;
  for (ptrdiff_t step = 1; low != first && low[-1] > time; step *= 2) {
    high = low - 1;
    low -= std::min(step, low - first);
  }
  for (ptrdiff_t step = 1; *high <= time; step *= 2) {
    low = high + 1;
    high += std::min(step, end - 1 - high);
  }
  return static_cast<size_t>(
      std::partition_point(low, high, [time](uint64_t latest) { return latest <= time; }) - first);
}

}  // namespace qiro::k7m::impl
