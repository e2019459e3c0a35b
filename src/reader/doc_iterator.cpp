#include "reader/doc_iterator.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/guarded_call.h"

namespace qiro::k7m::impl {

void DocIterator::AddTrack(std::unique_ptr<SampleIterator> samples, uint32_t timeScale) {
  if (auto first = samples->GetNextSample()) {
    const uint64_t time = first->GetInfo().timeStamp;
    tracks_.push_back({std::move(samples), std::move(first), time, timeScale, kQiroK7MErrorNone});
    largestTimeScale_ = std::max(largestTimeScale_, timeScale);
    ++pendingCount_;
  }
}

bool DocIterator::HasMoreEntries() { return pendingCount_ != 0 || !failed_.empty(); }

std::unique_ptr<Sample> DocIterator::GetNextSample() {
  if (!failed_.empty()) {
    const size_t track = failed_.back();
    failed_.pop_back();
    ThrowException(tracks_[track].failure);
  }
  const size_t earliest = FindEarliest();
  if (earliest == tracks_.size()) {
    return nullptr;
  }
  TrackState& track = tracks_[earliest];
  std::unique_ptr<Sample> chosen = std::move(track.pending);
  --pendingCount_;
  Fetch(track);
  if (track.failure != kQiroK7MErrorNone) {
    failed_.push_back(earliest);
  }
  Requeue();
  return chosen;
}

void DocIterator::Start() {
  // Later on nothing is allocated here: at most one entry a track.
  queue_.reserve(tracks_.size());
  failed_.reserve(tracks_.size());
  for (size_t track = 0; track < tracks_.size(); ++track) {
    Queue(track);
  }
}

void DocIterator::Fetch(TrackState& track) {
  track.failure = GuardedCall([&track] { track.pending = track.samples->GetNextSample(); });
  if (track.pending != nullptr) {
    track.time = track.pending->GetInfo().timeStamp;
    ++pendingCount_;
  }
}

bool DocIterator::CanWrap(const TrackState& track) const {
  return track.timeScale == 0 ||
         track.time > std::numeric_limits<uint64_t>::max() / largestTimeScale_;
}

bool DocIterator::IsBefore(size_t track, size_t other) const {
  const uint64_t time = tracks_[track].time * tracks_[other].timeScale;
  const uint64_t otherTime = tracks_[other].time * tracks_[track].timeScale;
  return time < otherTime || (time == otherTime && track < other);
}

void DocIterator::Queue(size_t track) {
  if (!isQueued_ || CanWrap(tracks_[track])) {
    isQueued_ = false;
    return;
  }
  queue_.push_back(track);
  std::push_heap(queue_.begin(), queue_.end(),
                 [this](size_t a, size_t b) { return IsBefore(b, a); });
}

void DocIterator::Requeue() {
  if (!isQueued_) {
    return;
  }
  if (tracks_[queue_.front()].pending == nullptr) {
    queue_.front() = queue_.back();
    queue_.pop_back();
  } else if (CanWrap(tracks_[queue_.front()])) {
    isQueued_ = false;
    return;
  }
  size_t place = 0;
  for (size_t child = 1; child < queue_.size(); child = 2 * place + 1) {
    if (child + 1 < queue_.size() && IsBefore(queue_[child + 1], queue_[child])) {
      ++child;
    }
    if (IsBefore(queue_[place], queue_[child])) {
      return;
    }
    std::swap(queue_[place], queue_[child]);
    place = child;
  }
}

size_t DocIterator::FindEarliest() const {
  if (!isQueued_) {
    return FindEarliestByScan();
  }
  return queue_.empty() ? tracks_.size() : queue_.front();
}

size_t DocIterator::FindEarliestByScan() const {
  size_t earliest = tracks_.size();
  for (size_t track = 0; track < tracks_.size(); ++track) {
    if (tracks_[track].pending != nullptr &&
        (earliest == tracks_.size() || IsBefore(track, earliest))) {
      earliest = track;
    }
  }
  return earliest;
}

}  // namespace qiro::k7m::impl
