#pragma once

#include "boxes/track.h"

namespace qiro::k7m::impl {

/// Walks the samples of a track through its fragments, parsing on as it goes. Fragment boundaries
/// do not show.
class FragmentCursor {
 public:
  explicit FragmentCursor(const Track& track)
      : root_(track.GetRootBox()),
        trackId_(track.GetTrackId()),
        fragments_(&root_->FragmentsOf(trackId_)) {}

  /// Moves to the first sample at or after a decode time. False when there is none.
  bool Position(uint64_t time);
  /// Moves to the first sample of the first fragment. False when there is none.
  bool PositionAtFirst();

  bool HasMoreEntries() const { return run_ != nullptr; }
  void Next();
  const SampleInfoTrun& Current() const { return sample_; }
  /// Of the fragment that holds the current sample.
  uint32_t DescriptionIndex() const { return Fragment().descriptionIndex; }

 private:
  const TrackFragment& Fragment() const { return fragments_->At(fragment_); }
  /// Moves from the given run of the current fragment on to the first sample at or after a time.
  bool SeekFrom(size_t run, uint64_t time);

  RootBox* root_;
  uint32_t trackId_;
  const TrackFragments* fragments_;
  size_t fragment_ = 0;
  const TrackRun* run_ = nullptr;
  uint32_t index_ = 0;
  SampleInfoTrun sample_{};
};

}  // namespace qiro::k7m::impl
