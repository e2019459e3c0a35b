#pragma once

#include <cstdint>
#include <optional>

#include "boxes/edit_boxes.h"

namespace qiro::k7m::impl {

/// Where a track that is being written stands on its timeline. Gaps are taken out of the media and
/// become empty edits. Times are in track time scale unless their name says otherwise, and wrap.
class TrackTimeline {
 public:
  /// `elst` is not owned.
  TrackTimeline(ElstBox* elst, uint32_t trackTimeScale, uint32_t movieTimeScale);

  /// Errors 1280 and 1288 when a sample at this decode time cannot follow.
  void CheckDecodeTime(uint64_t decodeTime) const;
  /// Before the track's first sample: one that is late starts behind a gap.
  void StartAt(uint64_t decodeTime, bool isGapSample);
  /// A gap sample: time passes without media from here on.
  void AddGap(uint64_t decodeTime);
  /// A media sample; ends a gap. Gives its decode time in the media, without the gaps before it.
  uint64_t AddMedia(uint64_t decodeTime);

  /// For a track of an existing file: its media ends at `mediaEnd`, none when it has no samples.
  /// The edit list is cut there.
  void ResumeBehind(std::optional<uint64_t> mediaEnd);
  /// Then: the movie lasts `movieDuration`, in movie time scale. A track that ends earlier is in a
  /// gap from there on.
  void ResumeAt(uint64_t movieDuration);

  /// Makes the edit list tell all of the timeline so far.
  void UpdateEdits();
  uint64_t End() const { return lastDecodeTime_ + lastDuration_; }
  uint64_t EndInMovieScale() const { return ToMovieScale(End()); }
  /// Length of the media: without gaps.
  uint64_t MediaDuration() const { return End() - timeShift_; }

  /// One movie tick, or 1 when the track's ticks are not finer: what a sample lasts until its
  /// successor is known.
  static uint32_t MinDuration(uint32_t trackTimeScale, uint32_t movieTimeScale);

  uint64_t TimeShift() const { return timeShift_; }
  /// Lengthens the last sample so that the track ends at `end` at the earliest; true when it did.
  bool StretchTo(uint64_t end);

  bool hasDescription = false;  ///< A sample description was chosen.
  uint32_t descriptionIndex =
      0;  ///< The one for the samples that follow, in a fragmented document.
  bool firstSampleSeen = false;

 private:
  static constexpr uint64_t kNone = ~uint64_t{0};  ///< -1: no sample yet.

  uint64_t ToMovieScale(uint64_t time) const;
  uint64_t ToTrackScale(uint64_t time) const;
  uint64_t LastEditStart() const { return ToTrackScale(elst_->GetLastSegStartTime()); }
  void CloseEditAt(uint64_t time);
  void EnterGapAt(uint64_t time);
  /// The first sample of a track of an existing file.
  void StartBehindEnd(uint64_t decodeTime, bool isGapSample);
  int64_t EditMediaTime() const { return static_cast<int64_t>(editStart_ - timeShift_); }

  ElstBox* elst_;
  uint32_t trackTimeScale_;
  uint32_t movieTimeScale_;
  bool isResumed_ = false;
  uint64_t expectedStart_ = 0;
  uint64_t timeShift_ = 0;  ///< Total length of the gaps so far.
  bool inGap_ = false;
  uint64_t editStart_ = 0;
  bool editPending_ = true;  ///< The next edit is a new entry; otherwise the last one grows.
  uint64_t lastDecodeTime_ = kNone;
  uint32_t lastDuration_ = 1;
  uint32_t minDuration_;
};

}  // namespace qiro::k7m::impl
