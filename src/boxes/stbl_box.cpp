#include "boxes/stbl_box.h"

#include "base/guarded_call.h"
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

/// How far the tables have got. The 'stss' is written last and the 'sdtp' not at all, so that what
/// fails there has added nothing to them.
struct StblBox::Progress {
  SttsBox::Progress stts;
  CttsBox::Progress ctts;
  TableBox::Progress stsz;
  TableBox::Progress stsc;
  TableBox::Progress co64;
  OpenChunk chunk;
};

StblBox::Progress StblBox::GetProgress() const {
  return {stts_->GetProgress(), ctts_->GetProgress(), stsz_->GetProgress(),
          stsc_->GetProgress(), co64_->GetProgress(), chunk_};
}

void StblBox::ReturnTo(const Progress& progress) {
  stts_->ReturnTo(progress.stts);
  ctts_->ReturnTo(progress.ctts);
  stsz_->ReturnTo(progress.stsz);
  stsc_->ReturnTo(progress.stsc);
  co64_->ReturnTo(progress.co64);
  chunk_ = progress.chunk;
}

template <class Work>
void StblBox::Enter(Work work) {
  const Progress before = GetProgress();
  const QiroK7MError failure = GuardedCall(work);
  if (failure != kQiroK7MErrorNone) {
    // A stream may fail with a code that leaves the writer good: the tables must go on agreeing.
    ReturnTo(before);
    ThrowException(failure);
  }
}

void StblBox::AddSample(const Sample& sample) {
  ThrowIf(stsz_->GetSampleCount() >= maxSampleCount_, kQiroK7MErrorSampleTableFull);
  Enter([&] { AddToTables(sample); });
}

void StblBox::AddToTables(const Sample& sample) {
  const QiroK7MSampleInfo& info = sample.GetInfo();
  stts_->AddSample(info.timeStamp);
  ctts_->AddCompositionOffset(info.compositionOffset);
  stsz_->AddSampleSize(info.sampleSize);
  AddToChunk(sample);
  if (sample.IsKeySample()) {
    stss_->AddSyncSample(stsz_->GetSampleCount());
  }
  if (sdtp_ != nullptr) {
    sdtp_->SetEntry(stsz_->GetSampleCount() - 1,
                    static_cast<uint8_t>(info.flags >> kQiroK7MSampleDependencyShift));
  }
}

void StblBox::AddToChunk(const Sample& sample) {
  const uint64_t offset = sample.GetSampleDataOffset();
  if (chunk_.description != kNoChunk && chunk_.description == selectedDescription_ &&
      chunk_.end == offset) {
    ++chunk_.sampleCount;
  } else {
    CloseChunk();
    chunk_ = {selectedDescription_, 1, chunk_.number + 1, offset, 0};
  }
  chunk_.end = offset + sample.GetInfo().sampleSize;
}

void StblBox::UpdateExtensionBox() {
  if (chunk_.description != kNoChunk) {
    Enter([this] { CloseChunk(); });
  }
}

void StblBox::CloseChunk() {
  if (chunk_.description != kNoChunk) {
    stsc_->AddChunks(chunk_.number, chunk_.sampleCount, chunk_.description);
    co64_->AddChunkOffset(chunk_.offset);
    chunk_.description = kNoChunk;
  }
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
