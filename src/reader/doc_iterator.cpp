#include "reader/doc_iterator.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/guarded_call.h"

namespace qiro::k7m::impl {

void DocIterator::AddTrack(std::unique_ptr<SampleIterator> samples, uint32_t timeScale) {
  if (samples->HasMoreEntries()) {
    auto first = samples->GetNextSample();
    tracks_.push_back({std::move(samples), std::move(first), timeScale, kQiroK7MErrorNone});
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
  const size_t track = TakeEarliest();
  if (track == tracks_.size()) {
    return nullptr;
  }
  std::unique_ptr<Sample> chosen = std::move(tracks_[track].pending);
  --pendingCount_;
  Fetch(track);
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

void DocIterator::Fetch(size_t track) {
  TrackState& state = tracks_[track];
  state.failure = GuardedCall([&state] {
    if (state.samples->HasMoreEntries()) {
      state.pending = state.samples->GetNextSample();
    }
  });
  if (state.failure != kQiroK7MErrorNone) {
    failed_.push_back(track);
  } else if (state.pending != nullptr) {
    ++pendingCount_;
    Queue(track);
  }
}

bool DocIterator::CanWrap(const TrackState& track) const {
  return track.timeScale == 0 || track.pending->GetInfo().timeStamp >
                                     std::numeric_limits<uint64_t>::max() / largestTimeScale_;
}

bool DocIterator::IsEarlier(size_t track, size_t other) const {
  return tracks_[track].pending->GetInfo().timeStamp * tracks_[other].timeScale <
         tracks_[other].pending->GetInfo().timeStamp * tracks_[track].timeScale;
}

bool DocIterator::IsBehind(size_t track, size_t other) const {
  return IsEarlier(other, track) || (other < track && !IsEarlier(track, other));
}

void DocIterator::Queue(size_t track) {
  if (!isQueued_ || CanWrap(tracks_[track])) {
    isQueued_ = false;
    return;
  }
  queue_.push_back(track);
  std::push_heap(queue_.begin(), queue_.end(),
                 [this](size_t a, size_t b) { return IsBehind(a, b); });
}

size_t DocIterator::TakeEarliest() {
  if (!isQueued_) {
    return FindEarliestByScan();
  }
  if (queue_.empty()) {
    return tracks_.size();
  }
  std::pop_heap(queue_.begin(), queue_.end(),
                [this](size_t a, size_t b) { return IsBehind(a, b); });
  const size_t track = queue_.back();
  queue_.pop_back();
  return track;
}

size_t DocIterator::FindEarliestByScan() const {
  size_t earliest = tracks_.size();
  for (size_t track = 0; track < tracks_.size(); ++track) {
    // A tie stays with the earlier track.
    if (tracks_[track].pending != nullptr &&
        (earliest == tracks_.size() || IsEarlier(track, earliest))) {
      earliest = track;
    }
  }
  return earliest;
}

}  // namespace qiro::k7m::impl
