#include "boxes/movie_boxes.h"

#include "boxes/movie_extends_boxes.h"
#include "boxes/track_boxes.h"

namespace qiro::k7m::impl {

MvhdBox::MvhdBox(QiroK7MStream* stream, uint8_t version, uint32_t flags, const QiroK7MDocInfo& info,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, kType, version, flags, allocator),
      creationTime_(info.creationTime),
      modificationTime_(info.modificationTime),
      timeScale_(info.timeScale),
      duration_(info.duration),
      playRate_(info.playRate),
      volume_(info.volume),
      nextTrackId_(1) {
  AccountForPayload();
}

void MvhdBox::UpdateExtensionBox() {
  constexpr uint64_t kDurationOffset = 20;
  constexpr uint64_t kDurationOffsetV0 = 12;
  UpdateVersioned(GetVersion() != 0 ? kDurationOffset : kDurationOffsetV0, duration_);
  SeekTo(GetBeginOffset() + FieldsOffset() + FieldsSize() - sizeof(nextTrackId_));
  Stream().WriteDWORD(nextTrackId_);
}

void MoovBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  if (box->GetBoxType() == MvhdBox::kType) {
    mvhd_ = static_cast<MvhdBox*>(box);
  } else if (box->GetBoxType() == TrakBox::kType) {
    traks_.push_back(static_cast<TrakBox*>(box));
  } else if (box->GetBoxType() == MvexBox::kType && mvex_ == nullptr) {
    mvex_ = static_cast<MvexBox*>(box);
  }
}

void MoovBox::DropLastChild() {
  traks_.pop_back();
  Box::DropLastChild();
}

std::span<const MandatoryBox> MoovBox::GetMandatoryBoxes() const {
  static constexpr MandatoryBox kRules[] = {
      {MvhdBox::kType, Occurrence::kExactlyOnce, {}},
      {TrakBox::kType, Occurrence::kAtLeastOnce, {}},
  };
  return kRules;
}

}  // namespace qiro::k7m::impl
