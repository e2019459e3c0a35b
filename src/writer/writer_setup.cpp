#include <algorithm>
#include <iterator>
#include <utility>

#include "base/guarded_call.h"
#include "boxes/stbl_box.h"
#include "boxes/track_setup.h"
#include "boxes/unknown_full_box.h"
#include "boxes/uuid_boxes.h"
#include "writer/writer.h"

namespace qiro::k7m::impl {
namespace {

constexpr uint32_t kMajorBrand = FourCc("k7m ");
constexpr uint32_t kMinorVersion = 1;
constexpr uint32_t kCompatibleBrands[] = {FourCc("isom"), FourCc("mp42"), FourCc("m4v ")};

QiroK7MDocInfo AtCreation(QiroK7MDocInfo info) {
  info.size = sizeof(info);
  info.duration = 0;
  return info;
}

bool IsBetween(QiroK7MError code, QiroK7MError first, QiroK7MError last) {
  return code >= first && code <= last;
}

/// The codes of mistakes that leave the file as it was. Exactly these, deliberately.
bool LeavesWriterGood(QiroK7MError code) {
  constexpr QiroK7MError kHarmless[] = {0, 8, 10, 11, 15, 20, 32, 33, 1030, 3072};
  return std::find(std::begin(kHarmless), std::end(kHarmless), code) != std::end(kHarmless) ||
         IsBetween(code, 1280, 1290) || IsBetween(code, 1536, 1542) || IsBetween(code, 2048, 2053);
}

}  // namespace

Writer::Writer(std::unique_ptr<QiroK7MStream> stream, const QiroK7MDocInfo& info,
               const QiroK7MAllocatorCallBacks* allocator)
    : K7MBase(allocator),
      stream_(std::move(stream)),
      docInfo_(AtCreation(info)),
      mode_(info.isFragmented != 0 ? kFragmented : kUnfragmented),
      root_(new (allocator) RootBox(stream_.Get(), allocator)),
      tracks_(K7MAllocator<std::unique_ptr<Track>>(allocator)),
      timelines_(K7MAllocator<TrackTimeline>(allocator)) {
  stream_.Open();
  WriteFirstBoxes();
}

Writer::~Writer() = default;

void Writer::WriteFirstBoxes() {
  const auto* allocator = GetAllocator();
  auto ftyp = MakeBox<FtypBox>(allocator, stream_.Get(), kMajorBrand, kMinorVersion);
  for (const uint32_t brand : kCompatibleBrands) {
    ftyp->AddCompatibleBrand(brand);
  }
  ftyp->WriteBox();
  auto moov = MakeBox<MoovBox>(allocator, stream_.Get());
  auto mvhd = MakeBox<MvhdBox>(allocator, stream_.Get(), uint8_t{1}, 0U, docInfo_);
  moov_ = moov.get();
  mvhd_ = mvhd.get();
  moov->SetBeginOffset(ftyp->GetEndOffset());
  moov->AddChildBox(std::move(mvhd));
  root_->AddChildBox(std::move(ftyp));
  root_->AddChildBox(std::move(moov));
  if (IsFragmented()) {
    newMvex_ = MakeBox<MvexBox>(allocator, stream_.Get());
    mvex_ = newMvex_.get();
  }
  RewriteMoov();
  writeOffset_ = moov_->GetEndOffset();
}

Track* Writer::CreateNewTrack(const QiroK7MTrackInfo& info, const QiroK7MTrackEntriesInfo& entries,
                              uint32_t maxSampleCount, std::span<const uint8_t> handlerName,
                              std::span<const uint32_t> hintTrackIds) {
  ThrowIf(appendMode_, kQiroK7MErrorAppendAddTrack);
  ThrowIf(!moovPending_, kQiroK7MErrorMovieBoxClosed);
  ThrowIf(mode_ == 2, kQiroK7MErrorTrackTypeMismatch);
  ThrowIf(mode_ > kUnfragmented, kQiroK7MErrorTrackTypeUnsupported);
  const auto trackId = static_cast<uint32_t>(tracks_.size() + 1);
  const TrackSetup setup{info, entries, handlerName, trackId, docInfo_.timeScale,
                         // Fragments need no tables.
                         IsFragmented() ? 0 : maxSampleCount,
                         TrackTimeline::MinDuration(info.timeScale, docInfo_.timeScale),
                         hintTrackIds};
  auto trak = MakeBox<TrakBox>(GetAllocator(), stream_.Get(), setup);
  auto track = std::make_unique<Track>(trak.get(), root_.get());
  const TrackTimeline timeline(trak->GetElstBox(), info.timeScale, docInfo_.timeScale);
  tracks_.reserve(trackId);
  timelines_.reserve(trackId);
  if (IsFragmented()) {
    newMvex_->AddChildBox(MakeBox<TrexBox>(GetAllocator(), stream_.Get(), trackId));
  }
  moovIsStale_ = true;
  moov_->AddChildBox(std::move(trak));
  tracks_.push_back(std::move(track));
  timelines_.push_back(timeline);
  CountTracks();
  const QiroK7MError failure = GuardedCall([this] { RewriteMoov(); });
  if (failure != kQiroK7MErrorNone) {
    DropLastTrack();
    ThrowException(failure);
  }
  return tracks_.back().get();
}

void Writer::CountTracks() {
  mvhd_->SetNextTrackId(static_cast<uint32_t>(tracks_.size() + 1));
  writeOffset_ = moov_->GetEndOffset();
}

void Writer::DropLastTrack() {
  timelines_.pop_back();
  tracks_.pop_back();
  moov_->DropLastChild();
  if (IsFragmented()) {
    newMvex_->DropLastChild();
  }
  CountTracks();
}

TrackTimeline& Writer::TimelineOf(uint32_t trackId) {
  ThrowIf(trackId == 0 || trackId > timelines_.size(), kQiroK7MErrorInvalidTrackId);
  return timelines_[trackId - 1];
}

const Track& Writer::TrackOf(uint32_t trackId) {
  TimelineOf(trackId);
  return *tracks_[trackId - 1];
}

SampleDescriptor* Writer::AddSampleDescriptor(uint32_t trackId,
                                              std::unique_ptr<SampleDescriptor> descriptor) {
  TimelineOf(trackId);
  StsdBox* stsd = TrakOf(trackId)->GetStsdBox();
  SampleDescriptor* added = stsd->AddSampleDescriptor(std::move(descriptor));
  // Until the entry is in the file; writing it alone is enough unless something fails.
  const bool wasStale = std::exchange(moovIsStale_, true);
  SetSampleDescriptor(trackId, added->GetSDID());
  stsd->WriteLastEntry();
  moovIsStale_ = wasStale;
  RewriteMoov();
  return added;
}

void Writer::SetSampleDescriptor(uint32_t trackId, uint32_t index) {
  TrackTimeline& timeline = TimelineOf(trackId);
  if (!IsFragmented()) {
    TrakOf(trackId)->GetStblBox()->SetSampleDescriptor(index);
  } else if (index != timeline.descriptionIndex) {
    if (fragments_ != nullptr && fragments_->IsOpen()) {
      if (fragments_->HasTrack(trackId - 1)) {
        FlushWriter();
      } else {
        fragments_->UpdateDescription(trackId - 1, index);
      }
    }
    timeline.descriptionIndex = index;
  }
  timeline.hasDescription = true;
}

void Writer::CloseMovieBox() {
  if (moovPending_ && IsFragmented()) {
    fragments_ = std::make_unique<FragmentBuilder>(stream_.Get(), tracks_.size(), GetAllocator());
    moov_->AddChildBox(std::move(newMvex_));
    writeOffset_ = moov_->GetEndOffset();
    // Closed for good: a stream may fail with a code that leaves the writer good.
    moovPending_ = false;
    moovIsStale_ = true;
    RewriteMoov();
  }
  moovPending_ = false;
}

void Writer::SetUlbBox(std::span<const uint8_t> metadata) {
  ThrowIf(appendMode_, kQiroK7MErrorAppendMetadata);
  ThrowIf(!noMediaYet_, kQiroK7MErrorMetadataAfterMedia);
  ThrowIf(ulbWritten_, kQiroK7MErrorMetadataAlreadyWritten);
  auto box = MakeBox<UlbDataBox>(GetAllocator(), stream_.Get());
  box->SetPayload(metadata.data(), metadata.size());
  CloseMovieBox();
  box->SetBeginOffset(writeOffset_);
  box->WriteBox();
  writeOffset_ += box->GetTotalSize();
  root_->AddChildBox(std::move(box));
  ulbWritten_ = true;
}

void Writer::AddFullBox(uint32_t type, uint8_t version, uint32_t flags,
                        std::span<const uint8_t> payload) {
  ThrowIf(!extraBoxesAllowed_, kQiroK7MErrorExtraBoxAfterMedia);
  CloseMovieBox();
  FlushWriter();
  const auto box =
      MakeBox<UnknownFullBox>(GetAllocator(), stream_.Get(), type, version, flags, payload);
  if (unreservedEnd_ > writeOffset_) {
    // What this box does not cover would be taken for the begin of a box.
    stream_.Get()->Truncate(writeOffset_);
    unreservedEnd_ = 0;
  }
  box->SetBeginOffset(writeOffset_);
  box->WriteBox();
  writeOffset_ += box->GetTotalSize();
}

QiroK7MDocInfo Writer::GetDocInfo() const { return docInfo_; }

std::unique_ptr<TrackCollection> Writer::GetTracks() const {
  ThrowIf(!appendMode_, kQiroK7MErrorNotOpenedForAppend);
  std::vector<Track*> tracks;
  tracks.reserve(tracks_.size());
  for (const auto& track : tracks_) {
    tracks.push_back(track.get());
  }
  return std::make_unique<TrackCollection>(std::move(tracks));
}

void Writer::SetWriterStateBad(QiroK7MError code) {
  hasFailed_ = hasFailed_ || code != kQiroK7MErrorNone;
  if (!LeavesWriterGood(code) && IsWriterStateGood()) {
    state_ = WriterState::kBad;
  }
}

}  // namespace qiro::k7m::impl
