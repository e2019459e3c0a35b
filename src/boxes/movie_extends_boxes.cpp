#include "boxes/movie_extends_boxes.h"

#include <algorithm>

namespace qiro::k7m::impl {

MehdBox::MehdBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator)
    : FullBox(stream, kType, 1, 0, allocator) {
  AccountForPayload();
  Grow(sizeof(duration_));
}

void MehdBox::WriteExtensionBox() {
  constexpr uint64_t kLargest = 0xFFFFFFFF;
  SeekTo(GetBeginOffset() + GetHeaderSize());
  if (GetVersion() == 1) {
    Stream().WriteDDWORD(duration_);
  } else {
    Stream().WriteDWORD(static_cast<uint32_t>(std::min(duration_, kLargest)));
  }
}

TrexBox::TrexBox(QiroK7MStream* stream, uint32_t trackId,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, kType, 0, 0, allocator),
      trackId_(trackId),
      descriptionIndex_(1),
      sampleDuration_(1),
      sampleSize_(1),
      sampleFlags_(1) {
  AccountForPayload();
}

MvexBox::MvexBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator), byTrackId_(K7MAllocator<TrexBox*>(allocator)) {
  MvexBox::AddChildBox(MakeBox<MehdBox>(allocator, stream));
}

void MvexBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  if (box->GetBoxType() == MehdBox::kType) {
    mehd_ = static_cast<MehdBox*>(box);
  }
}

void MvexBox::SetDuration(uint64_t duration) {
  if (mehd_ != nullptr) {
    mehd_->SetDuration(duration);
  }
}

void MvexBox::UpdateDuration() {
  if (mehd_ != nullptr) {
    mehd_->UpdateExtensionBox();
  }
}

void MehdBox::ReadExtensionPayloadData() {
  const bool isWide = GetVersion() == 1;
  ThrowIf(!CanRead(isWide ? sizeof(uint64_t) : sizeof(uint32_t)), kQiroK7MErrorBoxTruncated);
  duration_ = isWide ? Stream().ReadDDWORD() : Stream().ReadDWORD();
}

void MvexBox::CompleteReadChildBoxes(RootBox* root, bool validate) {
  Box::CompleteReadChildBoxes(root, validate);
  for (const auto& child : Children()) {
    if (child->GetBoxType() == TrexBox::kType) {
      byTrackId_.push_back(static_cast<TrexBox*>(child.get()));
    }
  }
  // Stable: the first of several for one track stays the first.
  std::stable_sort(byTrackId_.begin(), byTrackId_.end(), [](const TrexBox* a, const TrexBox* b) {
    return a->GetTrackId() < b->GetTrackId();
  });
}

TrexBox* MvexBox::GetDefaultsForTrack(uint32_t trackId) const {
  const auto found =
      std::partition_point(byTrackId_.begin(), byTrackId_.end(),
                           [trackId](const TrexBox* trex) { return trex->GetTrackId() < trackId; });
  return found != byTrackId_.end() && (*found)->GetTrackId() == trackId ? *found : nullptr;
}

}  // namespace qiro::k7m::impl
