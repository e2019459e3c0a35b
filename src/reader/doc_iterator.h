#pragma once

#include <memory>
#include <vector>

#include "base/errors.h"
#include "reader/sample_iterator.h"

namespace qiro::k7m::impl {

/// The samples of several tracks as one sequence, ordered by decode time on the presentation
/// timeline.
class DocIterator final : public SampleIterator {
 public:
  DocIterator() = default;

  /// Takes the samples of one track. Tracks are added in the order in which equal times are
  /// delivered. One without samples is dropped.
  void AddTrack(std::unique_ptr<SampleIterator> samples, uint32_t timeScale);
  /// To be called once, when all tracks were added.
  void Start();

  bool HasMoreEntries() override;
  /// A failure to fetch a track's next sample is kept until the sample before it was delivered, and
  /// is then the answer of one call; that track ends there.
  std::unique_ptr<Sample> GetNextSample() override;

 private:
  struct TrackState {
    std::unique_ptr<SampleIterator> samples;
    std::unique_ptr<Sample> pending;
    uint64_t time;  ///< Of the pending sample.
    uint32_t timeScale;
    QiroK7MError failure;
  };

  void Queue(TrackState& track);
  /// The track whose pending sample is next; null when there is none.
  TrackState* FindEarliest();
  TrackState* FindEarliestByScan();
  /// True when `track` comes before `other`: its time is smaller, the products wrapping in 64 bits;
  /// equal times are delivered in the order of the tracks.
  static bool IsBefore(const TrackState& track, const TrackState& other);
  bool CanWrap(const TrackState& track) const {
    return track.timeScale == 0 || track.time > latestTime_;
  }
  void Fetch(TrackState& track);
  /// Gives the first track of the queue, whose pending sample has changed, its place.
  void Requeue();
  /// Puts the track into the queue, whose first place is free.
  void SiftDown(TrackState* moved);

  /// They stay where they are from Start() on.
  std::vector<TrackState> tracks_;
  /// The tracks with a pending sample as a binary heap, the next one first, as long as no product
  /// of a time and a time scale wraps. Products that wrap have no order that a heap could keep:
  /// from then on all tracks are looked at for every sample.
  std::vector<TrackState*> queue_;
  bool isQueued_ = true;
  uint32_t largestTimeScale_ = 0;
  uint64_t latestTime_ = 0;  ///< With a later one a product may wrap.
  size_t pendingCount_ = 0;
  /// The tracks whose failure is kept.
  std::vector<TrackState*> failed_;
};

}  // namespace qiro::k7m::impl
