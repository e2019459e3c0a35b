#include "boxes/media_information_boxes.h"

#include "boxes/stbl_box.h"
#include "boxes/track_setup.h"

namespace qiro::k7m::impl {

DrefBox::DrefBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, header, allocator) {
  AddPrefix(FieldsSize());
  ReadCommonPayloadData();
  ThrowIf(GetVersion() > 1, kQiroK7MErrorUnsupportedVersion);
}

DrefBox::DrefBox(QiroK7MStream* stream, uint8_t version, uint32_t flags,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, kType, version, flags, allocator), entryCount_(1) {
  constexpr uint32_t kMediaInSameFile = 1;
  AddPrefix(FieldsSize());
  AccountForPayload();
  DrefBox::AddChildBox(MakeBox<UrlBox>(allocator, stream, uint8_t{0}, kMediaInSameFile));
}

void DrefBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  if (box->GetBoxType() == UrlBox::kType) {
    url_ = static_cast<UrlBox*>(box);
  }
}

DinfBox::DinfBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator) {
  DinfBox::AddChildBox(MakeBox<DrefBox>(allocator, stream, uint8_t{0}, 0U));
}

void DinfBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  if (box->GetBoxType() == DrefBox::kType) {
    dref_ = static_cast<DrefBox*>(box);
  }
}

std::span<const MandatoryBox> DinfBox::GetMandatoryBoxes() const {
  static constexpr uint32_t kReferences[] = {UrlBox::kType, DrefBox::kType};
  static constexpr MandatoryBox kRules[] = {{0, Occurrence::kExactlyOneOfList, kReferences}};
  return kRules;
}

namespace {

std::unique_ptr<Box> MakeMediaHeader(QiroK7MStream* stream, uint32_t mediaType,
                                     const QiroK7MAllocatorCallBacks* allocator) {
  switch (mediaType) {
    case FourCc("soun"):
      return MakeBox<SmhdBox>(allocator, stream, uint8_t{0});
    case FourCc("vide"):
      return MakeBox<VmhdBox>(allocator, stream, uint8_t{0}, 1U);
    case FourCc("hint"):
      return MakeBox<HmhdBox>(allocator, stream, uint8_t{0});
    default:
      return MakeBox<NmhdBox>(allocator, stream, uint8_t{0}, 0U);
  }
}

}  // namespace

MinfBox::MinfBox(QiroK7MStream* stream, const TrackSetup& setup,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator) {
  auto mediaHeader = MakeMediaHeader(stream, setup.info.mediaType, allocator);
  Box* kept = mediaHeader.get();
  MinfBox::AddChildBox(std::move(mediaHeader));
  mediaHeader_ = kept;
  MinfBox::AddChildBox(MakeBox<DinfBox>(allocator, stream));
  MinfBox::AddChildBox(MakeBox<StblBox>(allocator, stream, setup));
}

void MinfBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  switch (box->GetBoxType()) {
    case NmhdBox::kType:
      mediaHeader_ = box;
      break;
    case DinfBox::kType:
      dinf_ = static_cast<DinfBox*>(box);
      break;
    case StblBox::kType:
      stbl_ = static_cast<StblBox*>(box);
      break;
    default:
      break;
  }
}

std::span<const MandatoryBox> MinfBox::GetMandatoryBoxes() const {
  static constexpr MandatoryBox kRules[] = {
      {DinfBox::kType, Occurrence::kExactlyOnce, {}},
      {FourCc("stbl"), Occurrence::kExactlyOnce, {}},
  };
  return kRules;
}

}  // namespace qiro::k7m::impl
