#include "boxes/track_boxes.h"

#include <algorithm>

#include "base/time.h"
#include "boxes/media_boxes.h"
#include "boxes/payload_table.h"
#include "boxes/stbl_box.h"

namespace qiro::k7m::impl {
namespace {

/// What `getter` finds in the sample table of a track; null without a sample table.
template <class Result>
Result* FromTable(const TrakBox& trak, Result* (StblBox::*getter)() const) {
  const StblBox* stbl = trak.GetStblBox();
  return stbl == nullptr ? nullptr : (stbl->*getter)();
}

}  // namespace

TkhdBox::TkhdBox(QiroK7MStream* stream, uint8_t version, uint32_t flags, const TrackSetup& setup,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, kType, version, flags, allocator),
      creationTime_(setup.info.creationTime),
      modificationTime_(setup.info.modificationTime),
      trackId_(setup.trackId),
      duration_(
          Time::ConvertTimeScale(setup.info.duration, setup.info.timeScale, setup.movieTimeScale)),
      volume_(setup.info.volume),
      width_(setup.info.width),
      height_(setup.info.height) {
  AccountForPayload();
}

void TkhdBox::UpdateExtensionBox() {
  constexpr uint64_t kDurationOffset = 24;
  constexpr uint64_t kDurationOffsetV0 = 16;
  UpdateVersioned(GetVersion() != 0 ? kDurationOffset : kDurationOffsetV0, duration_);
}

HintBox::HintBox(QiroK7MStream* stream, std::span<const uint32_t> trackIds,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator),
      trackIds_(trackIds.begin(), trackIds.end(), K7MAllocator<uint32_t>(allocator)) {
  Grow(trackIds.size_bytes());
}

void HintBox::WriteExtensionBox() {
  for (const uint32_t trackId : trackIds_) {
    Stream().WriteDWORD(trackId);
  }
}

void HintBox::ReadExtensionPayloadData() {
  const uint64_t listSize = BytesLeft();
  if (listSize % sizeof(uint32_t) != 0) {
    Stream().RaiseWarning(kQiroK7MWarningPayloadLength);
    return;
  }
  ReadTableInto(Stream(), trackIds_, listSize / sizeof(uint32_t), sizeof(uint32_t),
                LoadBigEndian<uint32_t>);
}

void HintBox::Describe(FieldSink& sink) {
  DescribeTable(sink, "track_IDs", trackIds_,
                [&sink](uint32_t trackId) { sink.Number("track_ID", trackId); });
}

bool HintBox::ValidateHintRefTrackID(uint32_t trackId) const {
  return std::find(trackIds_.begin(), trackIds_.end(), trackId) != trackIds_.end();
}

TrefBox::TrefBox(QiroK7MStream* stream, std::span<const uint32_t> trackIds,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator) {
  TrefBox::AddChildBox(MakeBox<HintBox>(allocator, stream, trackIds));
}

void TrefBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  if (box->GetBoxType() == HintBox::kType) {
    hint_ = static_cast<HintBox*>(box);
  }
}

TrakBox::TrakBox(QiroK7MStream* stream, const TrackSetup& setup,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator) {
  TrakBox::AddChildBox(MakeBox<TkhdBox>(allocator, stream, uint8_t{1}, setup.info.flags, setup));
  if (setup.info.mediaType == FourCc("hint")) {
    TrakBox::AddChildBox(MakeBox<TrefBox>(allocator, stream, setup.hintTrackIds));
  }
  TrakBox::AddChildBox(MakeBox<MdiaBox>(allocator, stream, setup));
  TrakBox::AddChildBox(MakeBox<EdtsBox>(allocator, stream, setup.entries.gapCount));
}

void TrakBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  switch (box->GetBoxType()) {
    case TkhdBox::kType:
      tkhd_ = static_cast<TkhdBox*>(box);
      break;
    case TrefBox::kType:
      tref_ = static_cast<TrefBox*>(box);
      break;
    case MdiaBox::kType:
      mdia_ = static_cast<MdiaBox*>(box);
      TakeMediaType();
      break;
    case EdtsBox::kType:
      edts_ = static_cast<EdtsBox*>(box);
      break;
    default:
      break;
  }
}

std::span<const MandatoryBox> TrakBox::GetMandatoryBoxes() const {
  static constexpr MandatoryBox kRules[] = {
      {TkhdBox::kType, Occurrence::kExactlyOnce, {}},
      {MdiaBox::kType, Occurrence::kExactlyOnce, {}},
  };
  return kRules;
}

void TrakBox::CompleteReadChildBoxes(RootBox* root, bool validate) {
  Box::CompleteReadChildBoxes(root, validate);
  TakeMediaType();
}

void TrakBox::TakeMediaType() {
  if (mdia_ != nullptr && mdia_->GetHdlrBox() != nullptr) {
    mediaType_ = mdia_->GetHdlrBox()->GetHandlerType();
  }
}

StblBox* TrakBox::GetStblBox() const {
  const MinfBox* minf = mdia_ == nullptr ? nullptr : mdia_->GetMinfBox();
  return minf == nullptr ? nullptr : minf->GetStblBox();
}

StsdBox* TrakBox::GetStsdBox() const { return FromTable(*this, &StblBox::GetStsdBox); }
SttsBox* TrakBox::GetSttsBox() const { return FromTable(*this, &StblBox::GetSttsBox); }
CttsBox* TrakBox::GetCttsBox() const { return FromTable(*this, &StblBox::GetCttsBox); }
StscBox* TrakBox::GetStscBox() const { return FromTable(*this, &StblBox::GetStscBox); }
StszBox* TrakBox::GetStszBox() const { return FromTable(*this, &StblBox::GetStszBox); }
StssBox* TrakBox::GetStssBox() const { return FromTable(*this, &StblBox::GetStssBox); }
SdtpBox* TrakBox::GetSdtpBox() const { return FromTable(*this, &StblBox::GetSdtpBox); }
IChunkOffsetBox* TrakBox::GetChunkOffBox() const {
  return FromTable(*this, &StblBox::GetChunkOffBox);
}

}  // namespace qiro::k7m::impl
