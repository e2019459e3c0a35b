#include "writer/track_timeline.h"

#include <algorithm>

#include "base/errors.h"
#include "base/time.h"

namespace qiro::k7m::impl {
namespace {

constexpr uint32_t kNormalRate = 1;

}  // namespace

TrackTimeline::TrackTimeline(ElstBox* elst, uint32_t trackTimeScale, uint32_t movieTimeScale)
    : elst_(elst),
      trackTimeScale_(trackTimeScale),
      movieTimeScale_(movieTimeScale),
      minDuration_(MinDuration(trackTimeScale, movieTimeScale)) {}

uint32_t TrackTimeline::MinDuration(uint32_t trackTimeScale, uint32_t movieTimeScale) {
  return trackTimeScale <= movieTimeScale
             ? 1
             : static_cast<uint32_t>(Time::ConvertTimeScale(1, movieTimeScale, trackTimeScale));
}

uint64_t TrackTimeline::ToMovieScale(uint64_t time) const {
  return Time::ConvertTimeScale(time, trackTimeScale_, movieTimeScale_);
}

uint64_t TrackTimeline::ToTrackScale(uint64_t time) const {
  return Time::ConvertTimeScale(time, movieTimeScale_, trackTimeScale_);
}

void TrackTimeline::CheckDecodeTime(uint64_t decodeTime) const {
  constexpr uint64_t kMaxStep = 0xFFFFFFFF;
  if (!firstSampleSeen && lastDecodeTime_ == kNone) {
    return;
  }
  ThrowIf(static_cast<int64_t>(lastDecodeTime_) > static_cast<int64_t>(decodeTime),
          kQiroK7MErrorDecodeTimeBackwards);
  ThrowIf(decodeTime - lastDecodeTime_ > kMaxStep, kQiroK7MErrorDecodeTimeStepTooLarge);
}

void TrackTimeline::CloseEditAt(uint64_t time) {
  const uint64_t duration = ToMovieScale(time - editStart_);
  if (editPending_) {
    elst_->AddElstEntry(duration, EditMediaTime(), kNormalRate);
  } else {
    elst_->UpdateLastElstEntry(duration);
    editPending_ = true;
  }
}

void TrackTimeline::StartAt(uint64_t decodeTime, bool isGapSample) {
  firstSampleSeen = true;
  if (isResumed_) {
    StartBehindEnd(decodeTime, isGapSample);
  } else if (!isGapSample && decodeTime > expectedStart_) {
    // The media entry of length 0 that this gives a late track is intended.
    EnterGapAt(expectedStart_);
  }
}

void TrackTimeline::StartBehindEnd(uint64_t decodeTime, bool isGapSample) {
  if (inGap_ || decodeTime <= End()) {
    return;
  }
  if (!isGapSample && decodeTime <= expectedStart_) {
    // Less than the movie time scale can tell: no edit, but media times must stay true.
    timeShift_ += decodeTime - End();
  } else {
    // Also a gap sample: no sample lasts until it.
    EnterGapAt(End());
  }
}

void TrackTimeline::EnterGapAt(uint64_t time) {
  lastDecodeTime_ = time;
  inGap_ = true;
  CloseEditAt(time);
  editStart_ = time;
}

void TrackTimeline::AddGap(uint64_t decodeTime) {
  if (inGap_) {
    return;
  }
  lastDuration_ = 0;
  EnterGapAt(decodeTime);
}

uint64_t TrackTimeline::AddMedia(uint64_t decodeTime) {
  if (inGap_) {
    const uint64_t gap = decodeTime - editStart_;
    elst_->AddElstEntry(ToMovieScale(gap), K7MEditListEntry::kEmptyEdit, kNormalRate);
    inGap_ = false;
    editStart_ = decodeTime;
    timeShift_ += gap;
    editPending_ = true;
  }
  lastDuration_ = minDuration_;
  lastDecodeTime_ = decodeTime;
  return decodeTime - timeShift_;
}

bool TrackTimeline::StretchTo(uint64_t end) {
  if (end <= End()) {
    return false;
  }
  lastDuration_ += static_cast<uint32_t>(end - End());
  return true;
}

void TrackTimeline::ResumeBehind(std::optional<uint64_t> mediaEnd) {
  if (mediaEnd) {
    lastDecodeTime_ = *mediaEnd;
    lastDuration_ = 0;
  }
  const int64_t end = std::max<int64_t>(static_cast<int64_t>(lastDecodeTime_), 0);
  while (elst_->GetLastEntryMediaTime() == K7MEditListEntry::kEmptyEdit ||
         elst_->GetLastEntryMediaTime() > end) {
    elst_->DeleteLastElstEntry();
  }
  timeShift_ = ToTrackScale(elst_->GetGapsDuration());
  lastDecodeTime_ += timeShift_;
  const auto shown = static_cast<int64_t>(lastDecodeTime_ - LastEditStart());
  elst_->UpdateLastElstEntry(shown > 0 ? ToMovieScale(static_cast<uint64_t>(shown)) : 0);
}

void TrackTimeline::ResumeAt(uint64_t movieDuration) {
  isResumed_ = true;
  expectedStart_ = ToTrackScale(movieDuration);
  inGap_ = EndInMovieScale() < movieDuration;
  if (inGap_) {
    editPending_ = true;
    editStart_ = End();
    lastDecodeTime_ = expectedStart_;
  } else {
    editPending_ = elst_->GetEntries().empty();
    editStart_ = LastEditStart();
  }
}

void TrackTimeline::UpdateEdits() {
  const uint64_t duration = ToMovieScale(End() - editStart_);
  if (!editPending_) {
    elst_->UpdateLastElstEntry(duration);
  } else if (!inGap_) {
    elst_->AddElstEntry(duration, EditMediaTime(), kNormalRate);
    editPending_ = false;
  }
}

}  // namespace qiro::k7m::impl
