#pragma once

#include <memory>

#include "base/guarded_call.h"
#include "boxes/fragment_boxes.h"
#include "boxes/mdat_box.h"
#include "boxes/random_access_boxes.h"
#include "boxes/sample.h"

namespace qiro::k7m::impl {

/// Gathers the samples of one fragment after the other, and what their index and their successors
/// need to know of them. Tracks are counted from 0.
class FragmentBuilder {
 public:
  /// `stream` is not owned.
  FragmentBuilder(QiroK7MStream* stream, size_t trackCount,
                  const QiroK7MAllocatorCallBacks* allocator);

  /// The next fragment gets the number behind this one.
  void ResumeAfter(uint32_t fragmentNumber) { fragmentNumber_ = fragmentNumber; }

  bool IsOpen() const { return moof_ != nullptr; }
  /// Whether the track has samples in the open fragment.
  bool HasTrack(size_t track) const { return tracks_[track].isInFragment; }
  /// Makes the next sample open a fragment: one track fragment a track, with
  /// `descriptionOf(track)`.
  template <class DescriptionOf>
  void Open(uint64_t baseDataOffset, DescriptionOf descriptionOf);
  /// Of the open fragment.
  void UpdateDescription(size_t track, uint32_t index) { tracks_[track].traf->UpdateSDId(index); }

  /// Adds a sample whose bytes have their place. Its predecessor in an earlier fragment gets its
  /// duration in the file. `indexTime` is for the random access index; null: no entry is made.
  void AddSample(size_t track, const Sample& sample, const uint64_t* indexTime);

  /// Writes the open fragment from `offset` on, `endOf(track)` being where a track's last sample
  /// ends, and closes it, also when writing fails: then its samples are lost. Gives where the next
  /// box starts.
  template <class EndOf>
  uint64_t Write(uint64_t offset, MdatBox& mdat, bool isMoofFirst, EndOf endOf);

  /// What was written from `offset` on is lost: the samples before it get new successors.
  void ForgetFrom(uint64_t offset);

  const K7MVector<TfraEntry>& RandomAccessEntries(size_t track) const {
    return tracks_[track].entries;
  }

 private:
  struct TrackState {
    explicit TrackState(const QiroK7MAllocatorCallBacks* allocator)
        : entries(K7MAllocator<TfraEntry>(allocator)) {}

    std::unique_ptr<TrafBox> traf;
    bool isInFragment = false;
    uint32_t trunCount = 0;        ///< Runs in the open fragment.
    uint32_t trunSampleCount = 0;  ///< Samples in the last of them.
    uint64_t lastTime = 0;         ///< Decode time of the last sample, without gaps.
    /// Where the duration of the last written sample stands, to be made right when its successor
    /// comes; 0: nowhere.
    uint64_t pendingDurationOffset = 0;
    uint64_t pendingTimestamp = 0;
    /// The same two as they were before the last written fragment, in case that is lost.
    uint64_t earlierDurationOffset = 0;
    uint64_t earlierTimestamp = 0;
    K7MVector<TfraEntry> entries;
    size_t stampedEntries = 0;  ///< Entries that know their 'moof'.
  };

  void OpenFragment(uint64_t baseDataOffset);
  void PatchPendingDuration(TrackState& track, uint64_t time);
  void FinishTrack(TrackState& track, uint64_t end);
  uint64_t Place(uint64_t offset, MdatBox& mdat, bool isMoofFirst);
  void WriteBoxes(MdatBox& mdat, bool isMoofFirst);
  /// What its successors and the index need to know of the written fragment.
  void RememberFragment();
  void DropFragment();

  QiroK7MStream* stream_;
  const QiroK7MAllocatorCallBacks* allocator_;
  uint32_t fragmentNumber_ = 0;  ///< Of the last fragment opened; the first one is 1.
  uint64_t baseDataOffset_ = 0;
  std::unique_ptr<MoofBox> moof_;
  K7MVector<TrackState> tracks_;
};

template <class DescriptionOf>
void FragmentBuilder::Open(uint64_t baseDataOffset, DescriptionOf descriptionOf) {
  OpenFragment(baseDataOffset);
  for (size_t track = 0; track < tracks_.size(); ++track) {
    const auto trackId = static_cast<uint32_t>(track + 1);
    tracks_[track].traf =
        MakeBox<TrafBox>(allocator_, stream_, trackId, baseDataOffset, descriptionOf(track));
  }
}

template <class EndOf>
uint64_t FragmentBuilder::Write(uint64_t offset, MdatBox& mdat, bool isMoofFirst, EndOf endOf) {
  for (size_t track = 0; track < tracks_.size(); ++track) {
    if (tracks_[track].isInFragment) {
      FinishTrack(tracks_[track], endOf(track));
    }
  }
  const uint64_t end = Place(offset, mdat, isMoofFirst);
  const QiroK7MError failure = GuardedCall([&] {
    WriteBoxes(mdat, isMoofFirst);
    RememberFragment();
  });
  DropFragment();
  ThrowIf(failure != kQiroK7MErrorNone, failure);
  return end;
}

}  // namespace qiro::k7m::impl
