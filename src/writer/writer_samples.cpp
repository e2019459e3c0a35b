#include <algorithm>
#include <utility>

#include "base/guarded_call.h"
#include "base/time.h"
#include "boxes/media_boxes.h"
#include "boxes/stbl_box.h"
#include "writer/writer.h"

namespace qiro::k7m::impl {
namespace {

/// The magnitude is converted and keeps its sign. Error 19 when the result does not fit 32 bits.
uint32_t ConvertOffset(uint32_t offset, uint32_t from, uint32_t to) {
  if (from == to) {
    return offset;
  }
  const bool isNegative = static_cast<int32_t>(offset) < 0;
  const uint64_t largestMagnitude = isNegative ? 0x80000000 : 0x7FFFFFFF;
  const uint32_t magnitude = isNegative ? 0 - offset : offset;
  const uint64_t converted = Time::ConvertTimeScale(magnitude, from, to);
  ThrowIf(converted > largestMagnitude, kQiroK7MErrorStdException);
  const auto result = static_cast<uint32_t>(converted);
  return isNegative ? 0 - result : result;
}

void ConvertToTrackScale(QiroK7MSampleInfo& info, uint32_t timeScale) {
  info.timeStamp = Time::ConvertTimeScale(info.timeStamp, info.timeScale, timeScale);
  info.compositionOffset = ConvertOffset(info.compositionOffset, info.timeScale, timeScale);
  info.timeScale = timeScale;
}

}  // namespace

void Writer::AddSample(uint32_t trackId, Sample& sample, QiroK7MDataBuffer* data) {
  AddSampleFrom(Time(0, 1), trackId, sample, data);
}

void Writer::AddSampleFrom(const Time& origin, uint32_t trackId, Sample& sample,
                           QiroK7MDataBuffer* data) {
  TrackTimeline& timeline = TimelineOf(trackId);
  const uint32_t timeScale = tracks_[trackId - 1]->GetTimeScale();
  const uint64_t start = origin.GetValueInTimeScaleUnits(timeScale);
  ConvertToTrackScale(sample.MutableInfo(), timeScale);
  ThrowIf(!timeline.hasDescription, kQiroK7MErrorNoSampleDescriptionChosen);
  ThrowIf(!samplesAllowed_, kQiroK7MErrorSampleOutsideFragment);
  ThrowIf(sample.GetInfo().timeStamp < start, kQiroK7MErrorDecodeTimeBackwards);
  const uint64_t decodeTime = sample.GetInfo().timeStamp - start;
  timeline.CheckDecodeTime(decodeTime);
  if (!timeline.firstSampleSeen) {
    // A file that is continued may lack it; with a fragment of the track it could not be read.
    ThrowIf(appendMode_ && mvex_->GetDefaultsForTrack(trackId) == nullptr,
            kQiroK7MErrorNoTrackExtends);
    timeline.StartAt(decodeTime, sample.IsGap());
  }
  if (sample.IsGap()) {
    timeline.AddGap(decodeTime);
    ReleaseDataBuffer(data);
    return;
  }
  sample.MutableInfo().timeStamp = timeline.AddMedia(decodeTime);
  OpenMdat();
  if (data != nullptr) {
    mdat_->AddSampleData(sample, data);
  }
  if (IsFragmented()) {
    AddToFragment(trackId, sample, decodeTime);
  } else {
    TrakOf(trackId)->GetStblBox()->AddSample(sample);
  }
}

void Writer::OpenMdat() {
  if (mdat_ != nullptr) {
    return;
  }
  CloseMovieBox();
  noMediaYet_ = false;
  extraBoxesAllowed_ = IsFragmented();
  mdat_ = MakeBox<MdatBox>(GetAllocator(), stream_.Get(), moofBeforeMdat_);
  // Bytes that are kept until their fragment is written are counted from the begin of their box.
  const bool isPlacedLater = moofBeforeMdat_ && IsFragmented();
  mdat_->SetBeginOffset(isPlacedLater ? 0 : writeOffset_);
}

void Writer::UpdateElstEntries() {
  for (TrackTimeline& timeline : timelines_) {
    timeline.UpdateEdits();
  }
}

void Writer::SetDurations() {
  uint64_t movieDuration = 0;
  for (size_t i = 0; i < timelines_.size(); ++i) {
    const TrakBox* trak = moov_->GetTracks()[i];
    const uint64_t trackDuration = timelines_[i].EndInMovieScale();
    trak->GetMediaBox()->GetMdhdBox()->SetDuration(timelines_[i].MediaDuration());
    trak->GetTrackHeaderBox()->UpdateTrackDuration(trackDuration);
    movieDuration = std::max(movieDuration, trackDuration);
  }
  mvhd_->SetDuration(movieDuration);
  if (mvex_ != nullptr) {
    mvex_->SetDuration(movieDuration);
  }
}

void Writer::UpdateDurations() {
  SetDurations();
  RewriteMoov();
}

void Writer::RewriteMoov() {
  if (appendMode_) {
    // Boxes that were read are never written whole.
    RewriteReadMoov();
    return;
  }
  // Ends every open chunk; what lies in the tables already stays as it is.
  const bool wasStale = std::exchange(moovIsStale_, true);
  if (wasStale) {
    // By themselves: of what is written together nothing arrives when it fails, and an entry that
    // was added to a table is not written again.
    for (const TrakBox* trak : moov_->GetTracks()) {
      trak->GetStblBox()->UpdateExtensionBox();
    }
    moov_->WriteBox();
    if (hasFailed_ && mdat_ == nullptr) {
      CutRemains();
    }
  } else {
    moov_->UpdateBox();
  }
  moovIsStale_ = false;
}

void Writer::FlushWriter() {
  UpdateElstEntries();
  if (mdat_ != nullptr) {
    UpdateDurations();
    if (!IsFragmented()) {
      mdat_->WriteBox();
    } else if (fragments_->IsOpen()) {
      WriteFragment();
    } else {
      // Its first sample could not be stored. Something else may take its place.
      mdat_.reset();
    }
  } else if (hasFailed_ && moovIsStale_ && !appendMode_) {
    // A call that failed and left the writer good may have left the movie box half written.
    RewriteMoov();
  }
}

void Writer::Finalise() {
  if (hasFailed_ && moovIsStale_) {
    RewriteMoov();
  }
  FlushWriter();
  if (IsFragmented()) {
    CloseMovieBox();
    if (writeMfra_) {
      WriteMfra();
    }
  }
  if (hasFailed_) {
    CutRemains();
  }
}

void Writer::CutRemains() {
  const bool endsWithMedia = mdat_ != nullptr && !IsFragmented();
  // What was written without being reserved is a part of the document as long as nothing took its
  // place.
  const uint64_t end =
      std::max(endsWithMedia ? mdat_->GetEndOffset() : writeOffset_, unreservedEnd_);
  if (stream_.Get()->Length() > end) {
    stream_.Get()->Truncate(end);
  }
}

void Writer::Close() {
  if (state_ == WriterState::kGood) {
    const QiroK7MError failure = GuardedCall([this] { Finalise(); });
    if (failure != kQiroK7MErrorNone) {
      stream_.CloseNoThrow();
      state_ = WriterState::kBad;
      ThrowException(failure);
    }
    state_ = WriterState::kClosed;
  }
  if (stream_.IsOpen()) {
    const QiroK7MError failure = GuardedCall([this] { stream_.Close(); });
    if (failure != kQiroK7MErrorNone) {
      state_ = WriterState::kBad;
      ThrowException(failure);
    }
  }
}

}  // namespace qiro::k7m::impl
