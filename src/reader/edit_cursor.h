#pragma once

#include <cstdint>

#include "base/time.h"
#include "boxes/edit_boxes.h"
#include "boxes/track.h"

namespace qiro::k7m::impl {

/// The part of a track's media that an edit shows within the wanted range, in track time scale.
struct MediaInterval {
  uint64_t begin;
  uint64_t end;
  bool isEndIncluded;
};

/// Walks the edits of a track that a range of the presentation timeline touches. A track without an
/// edit list has one edit that shows its media from the start for the duration in its header.
class EditCursor {
 public:
  EditCursor(const Track& track, const Time& start, const Time& end);
  EditCursor(const EditCursor&) = delete;
  EditCursor& operator=(const EditCursor&) = delete;

  bool HasMoreEntries() const { return edits_.HasMoreEntries(); }
  void Next() {
    ++edits_;
    isFirst_ = false;
  }
  bool IsGap() const { return edits_->IsGap(); }
  /// Where the edit starts on the presentation timeline, in track time scale.
  uint64_t SegmentStart() const { return ToTrackScale(edits_->startTime); }
  /// Where the edit starts in the media, in track time scale, exactly as stored.
  uint64_t MediaTime() const { return static_cast<uint64_t>(edits_->mediaTime); }
  MediaInterval Interval() const;

 private:
  uint64_t ToTrackScale(uint64_t movieTime) const {
    return Time::ConvertTimeScale(movieTime, movieTimeScale_, trackTimeScale_);
  }

  uint32_t movieTimeScale_;
  uint32_t trackTimeScale_;
  uint64_t rangeStart_;  ///< Movie time scale, like the next one.
  uint64_t rangeEnd_;
  K7MEditListEntry wholeTrack_;
  ElstIterator edits_;
  bool isFirst_ = true;
};

}  // namespace qiro::k7m::impl
