#include "reader/edit_cursor.h"

#include <algorithm>

namespace qiro::k7m::impl {
namespace {

uint32_t MovieTimeScale(const Track& track) {
  const MvhdBox* mvhd = track.GetRootBox()->GetMovieHeader();
  return mvhd == nullptr ? 0 : mvhd->GetTimeScale();
}

}  // namespace

EditCursor::EditCursor(const Track& track, const Time& start, const Time& end)
    : movieTimeScale_(MovieTimeScale(track)),
      trackTimeScale_(track.GetTimeScale()),
      rangeStart_(start.GetValueInTimeScaleUnits(movieTimeScale_)),
      rangeEnd_(end.GetValueInTimeScaleUnits(movieTimeScale_)) {
  if (const ElstBox* elst = track.GetTrakBox()->GetElstBox()) {
    edits_ = elst->GetElstIterator(rangeStart_, rangeEnd_);
  } else {
    wholeTrack_.segmentDuration = track.GetTrakBox()->GetDurationInMovieTS();
    edits_ = ElstIterator(&wholeTrack_, &wholeTrack_ + 1);
  }
}

MediaInterval EditCursor::Interval() const {
  const uint64_t mediaTime = Time::ConvertTimeScale(MediaTime(), trackTimeScale_, movieTimeScale_);
  const uint64_t editEnd = mediaTime + edits_->segmentDuration;
  const uint64_t begin = isFirst_ ? rangeStart_ - edits_->startTime + mediaTime : mediaTime;
  // The first edit deliberately compares the range's end on the presentation timeline with a place
  // in the media; only later edits translate it.
  const uint64_t rangeEnd = isFirst_ ? rangeEnd_ : rangeEnd_ - edits_->startTime + mediaTime;
  return {ToTrackScale(begin), ToTrackScale(std::min(rangeEnd, editEnd)), rangeEnd < editEnd};
}

}  // namespace qiro::k7m::impl
