#include "boxes/media_boxes.h"

#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"
#include "boxes/stbl_box.h"
#include "boxes/stsd_box.h"

namespace qiro::k7m::impl {

namespace {

/// Three letters of 5 bits each, 'a' being 1.
uint16_t PackLanguage(const char (&language)[4]) {
  uint32_t packed = 0;
  for (int i = 0; i < 3; ++i) {
    const uint32_t letter = static_cast<uint8_t>(language[i]);
    packed = (packed << 5 | (letter - 0x60)) & 0xFFFF;
  }
  return static_cast<uint16_t>(packed);
}

/// Error 9 for a name that could not be read back.
std::span<const uint8_t> CheckName(std::span<const uint8_t> name) {
  ThrowIf(name.size() > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
  return name;
}

}  // namespace

MdhdBox::MdhdBox(QiroK7MStream* stream, uint8_t version, uint32_t flags,
                 const QiroK7MTrackInfo& info, const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, kType, version, flags, allocator),
      creationTime_(info.creationTime),
      modificationTime_(info.modificationTime),
      timeScale_(info.timeScale),
      duration_(info.duration),
      language_(PackLanguage(info.language)) {
  AccountForPayload();
}

void MdhdBox::UpdateExtensionBox() {
  constexpr uint64_t kDurationOffset = 20;
  constexpr uint64_t kDurationOffsetV0 = 12;
  UpdateVersioned(GetVersion() != 0 ? kDurationOffset : kDurationOffsetV0, duration_);
}

HdlrBox::HdlrBox(QiroK7MStream* stream, uint8_t version, uint32_t flags, const TrackSetup& setup,
                 const QiroK7MAllocatorCallBacks* allocator)
    : FieldBox(stream, kType, version, flags, allocator),
      handlerType_(setup.info.mediaType),
      name_(CheckName(setup.handlerName).begin(), setup.handlerName.end(),
            K7MAllocator<uint8_t>(allocator)) {
  AccountForPayload();
  Grow(name_.size());
}

void HdlrBox::WriteExtensionBox() {
  FieldBox::WriteExtensionBox();
  Stream().WriteBYTES(name_.data(), name_.size());
}

void HdlrBox::ReadExtensionPayloadData() {
  FieldBox::ReadExtensionPayloadData();
  const uint64_t nameSize = BytesLeft();
  ThrowIf(nameSize > kMaxEntryCount, kQiroK7MErrorTooManyEntries);
  ReadTable(
      Stream(), nameSize, 1, [this](uint64_t more) { ReserveMore(name_, more + 1); },
      [this](const uint8_t* bytes, uint64_t count) {
        name_.insert(name_.end(), bytes, bytes + count);
      });
  if (!name_.empty() && name_.back() != 0) {
    name_.push_back(0);
  }
}

void HdlrBox::Describe(FieldSink& sink) {
  FieldBox::Describe(sink);
  sink.Bytes("name", name_);
}

MdiaBox::MdiaBox(QiroK7MStream* stream, const TrackSetup& setup,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator) {
  MdiaBox::AddChildBox(MakeBox<MdhdBox>(allocator, stream, uint8_t{1}, 0U, setup.info));
  MdiaBox::AddChildBox(MakeBox<HdlrBox>(allocator, stream, uint8_t{0}, 0U, setup));
  MdiaBox::AddChildBox(MakeBox<MinfBox>(allocator, stream, setup));
}

void MdiaBox::AddChildBox(std::unique_ptr<Box> child) {
  Box* box = child.get();
  Box::AddChildBox(std::move(child));
  switch (box->GetBoxType()) {
    case MdhdBox::kType:
      mdhd_ = static_cast<MdhdBox*>(box);
      break;
    case HdlrBox::kType:
      hdlr_ = static_cast<HdlrBox*>(box);
      break;
    case MinfBox::kType:
      minf_ = static_cast<MinfBox*>(box);
      break;
    default:
      break;
  }
}

std::span<const MandatoryBox> MdiaBox::GetMandatoryBoxes() const {
  static constexpr MandatoryBox kRules[] = {
      {MdhdBox::kType, Occurrence::kExactlyOnce, {}},
      {HdlrBox::kType, Occurrence::kExactlyOnce, {}},
      {MinfBox::kType, Occurrence::kExactlyOnce, {}},
  };
  return kRules;
}

void MdiaBox::CompleteReadChildBoxes(RootBox* root, bool validate) {
  Box::CompleteReadChildBoxes(root, validate);
  UpdateStsdMediaType(root, validate);
}

void MdiaBox::UpdateStsdMediaType(RootBox* root, bool validate) {
  const StblBox* stbl = minf_ == nullptr ? nullptr : minf_->GetStblBox();
  StsdBox* stsd = stbl == nullptr ? nullptr : stbl->GetStsdBox();
  if (hdlr_ != nullptr && stsd != nullptr) {
    stsd->SetMediaType(hdlr_->GetHandlerType());
    stsd->CompleteRead(root, validate);
  }
}

}  // namespace qiro::k7m::impl
