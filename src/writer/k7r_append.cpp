#include <algorithm>

#include "boxes/media_boxes.h"
#include "boxes/stsd_box.h"
#include "writer/k7r_resume.h"
#include "writer/k7r_time_origin.h"
#include "writer/k7r_writer.h"

namespace qiro::k7m::impl {
namespace {

MoovBox* ParseUpToMovie(RootBox& root) {
  Box* box = nullptr;
  do {
    box = root.ParseNextBox();
    ThrowIf(box == nullptr, kQiroK7MErrorNoMovieBox);
  } while (box->GetBoxType() != MoovBox::kType);
  return static_cast<MoovBox*>(box);
}

QiroK7MDocInfo DocInfoOf(const MvhdBox& mvhd) {
  QiroK7MDocInfo info{};
  info.size = sizeof(info);
  info.isFragmented = 1;
  info.creationTime = mvhd.GetCreationTime();
  info.modificationTime = mvhd.GetModificationTime();
  info.playRate = mvhd.GetPlayRate();
  info.volume = mvhd.GetVolume();
  info.timeScale = mvhd.GetTimeScale();
  info.duration = mvhd.GetDuration();
  return info;
}

}  // namespace

Writer::Writer(std::unique_ptr<QiroK7MStream> stream, uint64_t keepLimit, uint64_t& lastFragment,
               const QiroK7MAllocatorCallBacks* allocator)
    : K7MBase(allocator),
      moovPending_(false),
      noMediaYet_(false),
      stream_(std::move(stream)),
      docInfo_{},
      mode_(kFragmented),
      appendMode_(true),
      root_(new (allocator) RootBox(stream_.Get(), allocator)),
      tracks_(K7MAllocator<std::unique_ptr<Track>>(allocator)),
      timelines_(K7MAllocator<TrackTimeline>(allocator)) {
  stream_.Open();
  AdoptMovie();
  const ResumePoint point = FindResumePoint(*root_, *stream_.Get(), tracks_.size(), keepLimit);
  ResumeTimelines(point);
  // Everything is known; only from here on the file changes.
  RewriteMoov();
  CutBehind(point);
  fragments_->ResumeAfter(point.fragmentNumber);
  docInfo_ = DocInfoOf(*mvhd_);
  lastFragment = point.lastAfraOffset;
}

void Writer::AdoptMovie() {
  moov_ = ParseUpToMovie(*root_);
  mvhd_ = moov_->GetMovieHeader();
  mvex_ = moov_->GetMvexBox();
  ThrowIf(mvex_ == nullptr, kQiroK7MErrorAppendNotFragmented);
  const auto& traks = moov_->GetTracks();
  fragments_ = std::make_unique<FragmentBuilder>(stream_.Get(), traks.size(), GetAllocator());
  tracks_.reserve(traks.size());
  timelines_.reserve(traks.size());
  for (TrakBox* trak : traks) {
    ThrowIf(trak->GetEdtsBox() == nullptr, kQiroK7MErrorAppendNoEditBox);
    ThrowIf(trak->GetElstBox() == nullptr, kQiroK7MErrorAppendNoEditList);
    tracks_.push_back(std::make_unique<Track>(trak, root_.get()));
    // A track is found by its id here, so that ids must be those that this library gives.
    ThrowIf(tracks_.back()->GetTrackId() != tracks_.size(), kQiroK7MErrorInvalidTrackId);
    timelines_.emplace_back(trak->GetElstBox(), tracks_.back()->GetTimeScale(),
                            mvhd_->GetTimeScale());
    trak->GetStsdBox()->UpdateSTSDBoxListForAppend();
  }
}

void Writer::ResumeTimelines(const ResumePoint& point) {
  for (size_t track = 0; track < timelines_.size(); ++track) {
    timelines_[track].ResumeBehind(point.trackEnds[track]);
  }
  SetDurations();
  for (TrackTimeline& timeline : timelines_) {
    timeline.ResumeAt(mvhd_->GetDuration());
  }
  UpdateElstEntries();
}

void Writer::CutBehind(const ResumePoint& point) {
  if (point.openBox != nullptr) {
    // What is appended must not belong to it.
    stream_.Get()->SeekTo(point.openBox->GetBeginOffset());
    stream_.Get()->WriteDWORD(static_cast<uint32_t>(point.openBox->GetTotalSize()));
  }
  writeOffset_ = point.writeOffset;
  stream_.Get()->Truncate(writeOffset_);
  root_->ForgetBehindMovie();
}

void Writer::RewriteReadMoov() {
  // Only what changes: tables and boxes of other writers stay as they are.
  mvhd_->UpdateExtensionBox();
  for (const TrakBox* trak : moov_->GetTracks()) {
    trak->GetTrackHeaderBox()->UpdateExtensionBox();
    trak->GetMediaBox()->GetMdhdBox()->UpdateExtensionBox();
    trak->GetElstBox()->UpdateExtensionBox();
    trak->GetStsdBox()->UpdateExtensionBox();
  }
  mvex_->UpdateDuration();
}

K7RWriter::K7RWriter(std::unique_ptr<QiroK7MStream> stream, uint64_t keepLimit,
                     uint64_t& lastFragment, const QiroK7MAllocatorCallBacks* allocator)
    : Writer(std::move(stream), keepLimit, lastFragment, allocator) {
  SetUpFragments();
  AdoptHintTrack();
}

void K7RWriter::AdoptHintTrack() {
  const auto& tracks = Tracks();
  const auto hint = std::find_if(tracks.begin(), tracks.end(), [](const auto& track) {
    return track->GetMediaType() == FourCc("hint");
  });
  if (hint == tracks.end()) {
    return;
  }
  // The time scale of the 'afra' boxes deliberately stays 0, and so do the times in them.
  hintTrackAdded_ = true;
  const StsdBox& stsd = *(*hint)->GetTrakBox()->GetStsdBox();
  for (uint32_t index = 1; index <= stsd.GetEntryCount(); ++index) {
    const SampleDescriptor& descriptor = *stsd.GetSampleEntry(index)->GetSampleDescriptor();
    if (descriptor.GetInfo().type == FourCc("vorp")) {
      timeOrigin_.emplace(ReadVorpTimeOffset(descriptor.GetCodecHeader()), (*hint)->GetTimeScale());
      return;
    }
  }
}

}  // namespace qiro::k7m::impl
