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

void DocIterator::Start() {
  // Later on nothing is allocated here: at most one entry a track.
  queue_.reserve(tracks_.size());
  failed_.reserve(tracks_.size());
  if (largestTimeScale_ != 0) {
    latestTime_ = std::numeric_limits<uint64_t>::max() / largestTimeScale_;
  }
  for (TrackState& track : tracks_) {
    Queue(track);
  }
}

inline void DocIterator::Fetch(TrackState& track) {
  const QiroK7MError failure =
      GuardedCall([&track] { track.pending = track.samples->GetNextSample(); });
  if (track.pending != nullptr) {
    track.time = track.pending->GetInfo().timeStamp;
    return;
  }
  --pendingCount_;
  if (failure != kQiroK7MErrorNone) {
    track.failure = failure;
    failed_.push_back(&track);
  }
}

inline bool DocIterator::IsBefore(const TrackState& track, const TrackState& other) {
  const uint64_t time = track.time * other.timeScale;
  const uint64_t otherTime = other.time * track.timeScale;
  return time < otherTime || (time == otherTime && &track < &other);
}

void DocIterator::Queue(TrackState& track) {
  if (!isQueued_ || CanWrap(track)) {
    isQueued_ = false;
    return;
  }
  queue_.push_back(&track);
  std::push_heap(queue_.begin(), queue_.end(),
                 [](const TrackState* a, const TrackState* b) { return IsBefore(*b, *a); });
}

inline void DocIterator::Requeue() {
  if (!isQueued_) {
    return;
  }
  TrackState* moved = queue_.front();
  if (moved->pending == nullptr) {
    moved = queue_.back();
    queue_.pop_back();
  } else if (CanWrap(*moved)) {
    isQueued_ = false;
    return;
  }
  constexpr size_t kUsualCount = 2;  // Of tracks: pictures and sound.
  if (queue_.size() == kUsualCount) {
    TrackState* const other = queue_.back();
    const bool isMovedFirst = IsBefore(*moved, *other);
    queue_.front() = isMovedFirst ? moved : other;
    queue_.back() = isMovedFirst ? other : moved;
  } else if (!queue_.empty()) {
    SiftDown(moved);
  }
}

std::unique_ptr<Sample> DocIterator::GetNextSample() {
  if (!failed_.empty()) {
    const QiroK7MError failure = failed_.back()->failure;
    failed_.pop_back();
    ThrowException(failure);
  }
  TrackState* const earliest = FindEarliest();
  if (earliest == nullptr) {
    return nullptr;
  }
  std::unique_ptr<Sample> chosen = std::move(earliest->pending);
  Fetch(*earliest);
  Requeue();
  return chosen;
}

void DocIterator::SiftDown(TrackState* moved) {
  const size_t count = queue_.size();
  size_t place = 0;
  for (size_t child = 1; child < count; child = 2 * place + 1) {
    if (child + 1 < count && IsBefore(*queue_[child + 1], *queue_[child])) {
      ++child;
    }
    if (IsBefore(*moved, *queue_[child])) {
      break;
    }
    queue_[place] = queue_[child];
    place = child;
  }
  queue_[place] = moved;
}

DocIterator::TrackState* DocIterator::FindEarliest() {
  if (!isQueued_) {
    return FindEarliestByScan();
  }
  return queue_.empty() ? nullptr : queue_.front();
}

DocIterator::TrackState* DocIterator::FindEarliestByScan() {
  TrackState* earliest = nullptr;
  for (TrackState& track : tracks_) {
    if (track.pending != nullptr && (earliest == nullptr || IsBefore(track, *earliest))) {
      earliest = &track;
    }
  }
  return earliest;
}

}  // namespace qiro::k7m::impl
