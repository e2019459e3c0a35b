#include "boxes/fragment_boxes.h"

#include <algorithm>

#include "boxes/movie_extends_boxes.h"
#include "boxes/root_box.h"

namespace qiro::k7m::impl {

TrafBox::TrafBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, header, allocator),
      truns_(K7MAllocator<TrunBox*>(allocator)),
      newRuns_(K7MAllocator<std::unique_ptr<TrunBox>>(allocator)),
      runs_(GetAllocator()) {}

TrafBox::TrafBox(QiroK7MStream* stream, uint32_t trackId, uint64_t baseDataOffset,
                 uint32_t descriptionIndex, const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator),
      truns_(K7MAllocator<TrunBox*>(allocator)),
      newRuns_(K7MAllocator<std::unique_ptr<TrunBox>>(allocator)),
      runs_(GetAllocator()) {
  TrafBox::AddChildBox(
      MakeBox<TfhdBox>(allocator, stream, trackId, baseDataOffset, descriptionIndex));
}

bool TrafBox::AddSample(const SampleInfoTrun& sample) {
  if (!newRuns_.empty()) {
    newRuns_.back()->UpdateLastSample(static_cast<uint32_t>(sample.timeStamp - lastTime_));
  }
  const bool startsRun = newRuns_.empty() || newRuns_.back()->DataEnd() != sample.dataOffset;
  if (startsRun) {
    newRuns_.push_back(MakeBox<TrunBox>(GetAllocator(), &Stream(), tfhd_->GetMdatOffset(),
                                        sample.dataOffset, sample.timeStamp));
  }
  newRuns_.back()->AddSample(sample);
  lastTime_ = sample.timeStamp;
  ++fragment_.sampleCount;
  return startsRun;
}

void TrafBox::FinishRuns(uint64_t end) {
  newRuns_.back()->UpdateLastSample(static_cast<uint32_t>(end - lastTime_));
  for (auto& run : newRuns_) {
    run->AccountForPayload();
    AddChildBox(std::move(run));
  }
  newRuns_.clear();
}

void TrafBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  if (box->GetBoxType() == TfhdBox::kType) {
    tfhd_ = static_cast<TfhdBox*>(box);
  } else if (box->GetBoxType() == TrunBox::kType) {
    truns_.push_back(static_cast<TrunBox*>(box));
  }
}

std::span<const MandatoryBox> TrafBox::GetMandatoryBoxes() const {
  static constexpr MandatoryBox kRules[] = {{TfhdBox::kType, Occurrence::kExactlyOnce, {}}};
  return kRules;
}

void TrafBox::CompleteReadChildBoxes(RootBox* root, bool validate) {
  ThrowIf(tfhd_ == nullptr, kQiroK7MErrorNoTrackFragmentHeader);
  const MvexBox* mvex = root->GetParsedMvexBox();
  ThrowIf(mvex == nullptr, kQiroK7MErrorInvalidHierarchy);
  tfhd_->CompleteRead(root, validate);
  const TrexBox* trex = mvex->GetDefaultsForTrack(tfhd_->GetTrackId());
  ThrowIf(trex == nullptr, kQiroK7MErrorNoTrackExtends);
  tfhd_->ApplyDefaults(*trex);
  fragment_.descriptionIndex = tfhd_->GetSDId();
  fragment_.Start(StartTime(*root));
  CompleteRuns(root, validate);
  if (HasSamples()) {
    root->AnnounceFragment(GetTrackId(), fragment_.endTime);
  }
}

void TrafBox::CompleteRuns(RootBox* root, bool validate) {
  const uint64_t base = root->BaseDataOffset(tfhd_->GetFields());
  const bool runsFollowEachOther = root->Resolves(ReadRule::kBaseOffsets);
  uint64_t dataEnd = base;
  for (const auto& child : Children()) {
    if (child->GetBoxType() == TrunBox::kType) {
      auto* trun = static_cast<TrunBox*>(child.get());
      trun->SetContext(base, runsFollowEachOther ? dataEnd : base, tfhd_->GetFields().defaults);
      trun->CompleteRead(root, validate);
      fragment_.Lengthen(*trun);
      dataEnd = trun->DataEnd();
    } else if (child.get() != tfhd_) {
      child->CompleteRead(root, validate);
    }
  }
  std::erase_if(truns_, [](const TrunBox* trun) { return trun->GetSampleCount() == 0; });
  runs_.MakeRoom(truns_.size());
  for (const TrunBox* trun : truns_) {
    runs_.push_back(*trun);
  }
  fragment_.runs = runs_.data();
  fragment_.runCount = static_cast<uint32_t>(runs_.size());
  root->NoteDataEnd(dataEnd);
}

uint64_t TrafBox::StartTime(const RootBox& root) {
  if (root.Resolves(ReadRule::kStartTimes)) {
    for (const auto& child : Children()) {
      if (child->GetBoxType() == kTfdtType) {
        return ReadStartTime(*child);
      }
    }
  }
  return root.NextStartTime(GetTrackId());
}

uint64_t TrafBox::ReadStartTime(Box& tfdt) {
  SeekTo(tfdt.GetBeginOffset() + tfdt.GetBoxHeader().GetHeaderSize());
  ThrowIf(!tfdt.CanRead(FullBox::kVersionAndFlagsSize), kQiroK7MErrorBadFullBoxHeader);
  const bool isWide = IsStartTimeWide(Stream().ReadDWORD());
  ThrowIf(!tfdt.CanRead(isWide ? sizeof(uint64_t) : sizeof(uint32_t)), kQiroK7MErrorBoxTruncated);
  return isWide ? Stream().ReadDDWORD() : Stream().ReadDWORD();
}

void MoofBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  if (box->GetBoxType() == MfhdBox::kType) {
    mfhd_ = static_cast<MfhdBox*>(box);
  }
}

std::span<const MandatoryBox> MoofBox::GetMandatoryBoxes() const {
  static constexpr MandatoryBox kRules[] = {{MfhdBox::kType, Occurrence::kExactlyOnce, {}}};
  return kRules;
}

}  // namespace qiro::k7m::impl
