#include "boxes/stbl_box.h"

#include "boxes/sample.h"
#include "boxes/track_setup.h"

namespace qiro::k7m::impl {
namespace {

/// Keeps `box` in `kept` when it is of that class.
template <class T>
bool KeepIf(Box* box, T*& kept) {
  if (box->GetBoxType() != T::kType) {
    return false;
  }
  kept = static_cast<T*>(box);
  return true;
}

}  // namespace

StblBox::StblBox(QiroK7MStream* stream, const TrackSetup& setup,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator), maxSampleCount_(setup.maxSampleCount) {
  constexpr uint32_t kHasDependencyTable = 1;
  const uint32_t maxCount = setup.maxSampleCount;
  StblBox::AddChildBox(MakeBox<StsdBox>(allocator, stream, setup.info.mediaType, setup.entries));
  StblBox::AddChildBox(MakeBox<SttsBox>(allocator, stream, maxCount, setup.lastSampleDuration));
  StblBox::AddChildBox(MakeBox<StscBox>(allocator, stream, maxCount));
  StblBox::AddChildBox(MakeBox<StszBox>(allocator, stream, maxCount));
  StblBox::AddChildBox(MakeBox<Co64Box>(allocator, stream, maxCount));
  StblBox::AddChildBox(MakeBox<CttsBox>(allocator, stream, maxCount));
  StblBox::AddChildBox(MakeBox<StssBox>(allocator, stream, maxCount));
  if ((setup.info.trackFlags & kHasDependencyTable) != 0) {
    StblBox::AddChildBox(MakeBox<SdtpBox>(allocator, stream, maxCount));
  }
}

void StblBox::AddSample(const Sample& sample) {
  ++samplesAdded_;
  ThrowIf(samplesAdded_ > maxSampleCount_, kQiroK7MErrorSampleTableFull);
  const QiroK7MSampleInfo& info = sample.GetInfo();
  stts_->AddSample(info.timeStamp);
  ctts_->AddCompositionOffset(info.compositionOffset);
  stsz_->AddSampleSize(info.sampleSize);
  AddToChunk(sample);
  if (sample.IsKeySample()) {
    stss_->AddSyncSample(stsz_->GetSampleCount());
  }
  if (sdtp_ != nullptr) {
    sdtp_->SetEntry(static_cast<uint32_t>(samplesAdded_ - 1),
                    static_cast<uint8_t>(info.flags >> kQiroK7MSampleDependencyShift));
  }
}

void StblBox::AddToChunk(const Sample& sample) {
  const uint64_t offset = sample.GetSampleDataOffset();
  if (chunkDescription_ != kNoChunk && chunkDescription_ == selectedDescription_ &&
      nextContiguousOffset_ == offset) {
    ++samplesInChunk_;
  } else {
    CloseChunk();
    ++chunkNumber_;
    chunkDescription_ = selectedDescription_;
    samplesInChunk_ = 1;
    chunkOffset_ = offset;
  }
  nextContiguousOffset_ = offset + sample.GetInfo().sampleSize;
}

void StblBox::CloseChunk() {
  if (chunkDescription_ != kNoChunk && samplesInChunk_ != 0) {
    stsc_->AddChunks(chunkNumber_, samplesInChunk_, chunkDescription_);
    co64_->AddChunkOffset(chunkOffset_);
  }
  chunkDescription_ = kNoChunk;
  samplesInChunk_ = 0;
}

void StblBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  KeepIf(box, stsd_) || KeepIf(box, stts_) || KeepIf(box, ctts_) || KeepIf(box, stsc_) ||
      KeepIf(box, stsz_) || KeepIf(box, stco_) || KeepIf(box, co64_) || KeepIf(box, stss_) ||
      KeepIf(box, sdtp_);
}

std::span<const MandatoryBox> StblBox::GetMandatoryBoxes() const {
  static constexpr uint32_t kChunkOffsets[] = {StcoBox::kType, Co64Box::kType};
  static constexpr uint32_t kSampleSizes[] = {StszBox::kType};
  static constexpr MandatoryBox kRules[] = {
      {StsdBox::kType, Occurrence::kExactlyOnce, {}},
      {SttsBox::kType, Occurrence::kExactlyOnce, {}},
      {StscBox::kType, Occurrence::kExactlyOnce, {}},
      {0, Occurrence::kExactlyOneOfList, kChunkOffsets},
      {0, Occurrence::kExactlyOneOfList, kSampleSizes},
  };
  return kRules;
}

void StblBox::CompleteReadChildBoxes(RootBox* root, bool validate) {
  for (const auto& child : Children()) {
    if (child.get() != sdtp_) {
      child->CompleteRead(root, validate);
    }
  }
  if (sdtp_ != nullptr) {
    sdtp_->SetCount(stsz_ == nullptr ? 0 : stsz_->GetSampleCount());
    sdtp_->CompleteRead(root, validate);
  }
}

IChunkOffsetBox* StblBox::GetChunkOffBox() const {
  if (co64_ != nullptr) {
    return co64_;
  }
  return stco_;
}

}  // namespace qiro::k7m::impl
