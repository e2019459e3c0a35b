#include "writer/k7r_writer.h"

#include <utility>

#include "base/guarded_call.h"
#include "boxes/stsd_box.h"
#include "boxes/unknown_full_box.h"
#include "writer/k7r_time_origin.h"

namespace qiro::k7m::impl {
namespace {

constexpr uint32_t kHint = FourCc("hint");
constexpr uint32_t kVorp = FourCc("vorp");

/// There is no K7R file without fragments.
QiroK7MDocInfo Fragmented(QiroK7MDocInfo info) {
  if (info.isFragmented == 0) {
    info.isFragmented = 1;
  }
  return info;
}

}  // namespace

K7RWriter::K7RWriter(std::unique_ptr<QiroK7MStream> stream, const QiroK7MDocInfo& info,
                     const QiroK7MAllocatorCallBacks* allocator)
    : Writer(std::move(stream), Fragmented(info), allocator) {
  SetUpFragments();
}

void K7RWriter::SetUpFragments() {
  samplesAllowed_ = false;
  moofBeforeMdat_ = true;
  writeMfra_ = false;
}

K7RWriter::~K7RWriter() {
  if (IsWriterStateGood()) {
    SetWriterStateBad(GuardedCall([this] { K7RWriter::FlushWriter(); }));
  }
}

Track* K7RWriter::CreateNewTrack(const QiroK7MTrackInfo& info,
                                 const QiroK7MTrackEntriesInfo& entries, uint32_t maxSampleCount,
                                 std::span<const uint8_t> handlerName,
                                 std::span<const uint32_t> hintTrackIds) {
  if (info.mediaType != kHint) {
    return Writer::CreateNewTrack(info, entries, maxSampleCount, handlerName, hintTrackIds);
  }
  // What a 'vorp' entry needs beyond what is reserved for an entry of a hint track.
  constexpr uint32_t kVorpFieldsSize = 6;
  ThrowIf(hintTrackAdded_, kQiroK7MErrorSecondHintTrack);
  QiroK7MTrackEntriesInfo enlarged = entries;
  enlarged.maxCodecHeaderDataLength += kVorpFieldsSize;
  ThrowIf(enlarged.maxCodecHeaderDataLength < kVorpFieldsSize, kQiroK7MErrorStdException);
  Track* track = Writer::CreateNewTrack(info, enlarged, maxSampleCount, handlerName, hintTrackIds);
  hintTrackAdded_ = true;
  afraTimeScale_ = info.timeScale;
  return track;
}

SampleDescriptor* K7RWriter::AddSampleDescriptor(uint32_t trackId,
                                                 std::unique_ptr<SampleDescriptor> descriptor) {
  SampleDescriptor* added = nullptr;
  const SampleDescriptor& given = *descriptor;
  const Track& track = TrackOf(trackId);
  const StsdBox* stsd = track.GetTrakBox()->GetStsdBox();
  const uint32_t countBefore = stsd->GetEntryCount();
  const QiroK7MError failure =
      GuardedCall([&] { added = Writer::AddSampleDescriptor(trackId, std::move(descriptor)); });
  // A description that only could not be written stays, and so does what it says.
  const bool isThere = stsd->GetEntryCount() > countBefore;
  if (isThere && track.GetMediaType() == kHint && given.GetInfo().type == kVorp) {
    timeOrigin_.emplace(ReadVorpTimeOffset(given.GetCodecHeader()), track.GetTimeScale());
  }
  ThrowIf(failure != kQiroK7MErrorNone, failure);
  return added;
}

void K7RWriter::AddSample(uint32_t trackId, Sample& sample, QiroK7MDataBuffer* data,
                          bool isRandomAccess) {
  const Time given(sample.GetInfo().timeStamp, sample.GetInfo().timeScale);
  ThrowIf(!timeOrigin_, kQiroK7MErrorNoTimeOrigin);
  AddSampleFrom(*timeOrigin_, trackId, sample, data);
  if (isRandomAccess && !sample.IsGap()) {
    // The time is deliberately the one that was given, not counted from the origin. The offset
    // counts from the media box as long as that has no place.
    afra_->AddEntry(given.GetValueInTimeScaleUnits(afraTimeScale_), sample.GetSampleDataOffset());
  }
}

bool K7RWriter::HasHintReference(uint32_t hintTrackId, uint32_t mediaTrackId) {
  const Track& hint = TrackOf(hintTrackId);
  if (hint.GetMediaType() != kHint) {
    return true;
  }
  const TrefBox* references = hint.GetTrakBox()->GetTrackRefBox();
  return references != nullptr && references->ValidateHintRefTrackID(mediaTrackId);
}

void K7RWriter::AddHintSample(uint32_t hintTrackId, uint32_t mediaTrackId, Sample& sample,
                              const QiroK7MHintSampleInfo& media, QiroK7MDataBuffer* data,
                              bool isRandomAccess) {
  ThrowIf(!HasHintReference(hintTrackId, mediaTrackId), kQiroK7MErrorTrackNotReferenced);
  QiroK7MSampleInfo info = sample.GetInfo();  // Before it is changed.
  info.mediaType = TrackOf(mediaTrackId).GetMediaType();
  info.sampleSize = media.mediaSize;
  AddSample(hintTrackId, sample, data, isRandomAccess);
  Sample mediaSample(info, sample.GetSampleDataOffset() + media.mediaOffset, nullptr, nullptr,
                     nullptr);
  AddSample(mediaTrackId, mediaSample, nullptr, false);
}

void K7RWriter::PendingAbst::Take(QiroK7MDataBuffer* payload, uint32_t length, AbstPlace place) {
  payload_ = *payload;
  payload->release = nullptr;
  length_ = length;
  place_ = place;
}

void K7RWriter::PendingAbst::Release() {
  ReleaseDataBuffer(&payload_);
  length_ = 0;
}

void K7RWriter::AddAbst(QiroK7MDataBuffer* payload, uint32_t length, AbstPlace place) {
  ThrowIf(abst_.IsPending(), kQiroK7MErrorBootstrapPending);
  if (length != 0) {
    abst_.Take(payload, length, place);
  }
}

uint64_t K7RWriter::StartK7RFragment() {
  ThrowIf(!hintTrackAdded_, kQiroK7MErrorNoHintTrack);
  noMediaYet_ = false;
  if (moovPending_) {
    CloseMovieBox();
  } else if (afra_ != nullptr && !HasOpenMdat() && !abst_.IsPending()) {
    return writeOffset_;
  }
  FlushWriter();
  afra_ = MakeBox<AfraBox>(GetAllocator(), Stream(), uint8_t{0}, afraTimeScale_);
  afra_->SetBeginOffset(writeOffset_);
  samplesAllowed_ = true;
  return writeOffset_;
}

void K7RWriter::CutLostFragment() {
  if (hasLostFragment_) {
    Stream()->Truncate(writeOffset_);
    hasLostFragment_ = false;
  }
}

void K7RWriter::FlushWriter() {
  samplesAllowed_ = false;
  CutLostFragment();
  if (afra_ == nullptr || !HasOpenMdat()) {
    ThrowIf(abst_.IsPending(), kQiroK7MErrorFragmentWriterFlush);
    Writer::FlushWriter();
    WriteEmptyAfra();
    return;
  }
  const uint64_t begin = writeOffset_;
  const QiroK7MError failure = GuardedCall([this] { WriteWithAfra(); });
  if (failure != kQiroK7MErrorNone) {
    LoseFragment(begin);
    hasLostFragment_ = true;
  }
  // Media that is still there is written by the next flush, with what belongs to it.
  if (!HasOpenMdat()) {
    afra_.reset();
    abst_.Release();
  }
  ThrowIf(failure != kQiroK7MErrorNone, failure);
}

void K7RWriter::WriteEmptyAfra() {
  const auto afra = std::move(afra_);
  if (afra != nullptr) {
    // Deliberately not reserved: whatever is written next takes its place.
    afra->WriteBox();
    unreservedEnd_ = afra->GetEndOffset();
  }
}

void K7RWriter::WriteWithAfra() {
  unreservedEnd_ = 0;  // The fragment takes its place.
  if (abst_.IsPending() && abst_.Place() == AbstPlace::kBeforeAfra) {
    WriteAbst();
  }
  afra_->SetBeginOffset(writeOffset_);
  writeOffset_ = afra_->GetEndOffset();
  if (abst_.IsPending() && abst_.Place() == AbstPlace::kBehindAfra) {
    WriteAbst();
  }
  Writer::FlushWriter();
  afra_->IncrementSamplesOffset(lastMdatOffset_ - afra_->GetBeginOffset());
  afra_->WriteBox();
}

void K7RWriter::WriteAbst() {
  const auto abst = MakeBox<UnknownFullBox>(GetAllocator(), Stream(), FourCc("abst"), uint8_t{0},
                                            0U, abst_.Payload());
  abst->SetBeginOffset(writeOffset_);
  abst->WriteBox();
  writeOffset_ = abst->GetEndOffset();
}

}  // namespace qiro::k7m::impl
