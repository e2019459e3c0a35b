#include "boxes/track.h"

#include <cstring>

#include "base/time.h"
#include "boxes/media_boxes.h"
#include "boxes/stbl_box.h"

namespace qiro::k7m::impl {
namespace {

constexpr uint32_t kHasDependencyTable = 1;

void UnpackLanguage(uint16_t packed, char (&language)[4]) {
  for (int i = 0; i < 3; ++i) {
    language[i] = static_cast<char>((packed >> (10 - 5 * i) & 0x1F) + 0x60);
  }
  language[3] = 0;
}

}  // namespace

Track::Track(TrakBox* trak, RootBox* root) : trak_(trak), root_(root) {
  entriesInfo_.size = sizeof(entriesInfo_);
  info_.size = sizeof(info_);
  FillEntriesInfo();
  FillFromHeader();
  FillFromMedia();
}

void Track::FillEntriesInfo() {
  if (const StsdBox* stsd = trak_->GetStsdBox()) {
    entriesInfo_.sampleDescriptorCount = stsd->GetEntryCount();
    entriesInfo_.maxCodecHeaderDataLength = stsd->GetMaxCodecHeaderDataLen();
  }
  if (const ElstBox* elst = trak_->GetElstBox()) {
    entriesInfo_.gapCount = elst->GetGapsCount();
  }
}

void Track::FillFromHeader() {
  info_.mediaType = trak_->GetMediaType();
  if (const TkhdBox* tkhd = trak_->GetTrackHeaderBox()) {
    info_.flags = tkhd->GetFlags();
    info_.creationTime = tkhd->GetCreationTime();
    info_.modificationTime = tkhd->GetModificationTime();
    info_.width = tkhd->GetWidth();
    info_.height = tkhd->GetHeight();
    info_.volume = tkhd->GetVolume();
  }
  if (trak_->GetSdtpBox() != nullptr) {
    info_.trackFlags = kHasDependencyTable;
  }
}

void Track::FillFromMedia() {
  const MdiaBox* mdia = trak_->GetMediaBox();
  const MdhdBox* mdhd = mdia == nullptr ? nullptr : mdia->GetMdhdBox();
  const HdlrBox* hdlr = mdia == nullptr ? nullptr : mdia->GetHdlrBox();
  if (mdhd != nullptr) {
    const MvhdBox* mvhd = root_->GetMovieHeader();
    UnpackLanguage(mdhd->GetLanguage(), info_.language);
    info_.timeScale = mdhd->GetTimeScale();
    info_.duration =
        Time::ConvertTimeScale(trak_->GetDurationInMovieTS(),
                               mvhd == nullptr ? 0 : mvhd->GetTimeScale(), mdhd->GetTimeScale());
  }
  if (hdlr != nullptr) {
    handlerName_.assign(hdlr->GetHandlerName(),
                        hdlr->GetHandlerName() + hdlr->GetHandlerNameSize());
    info_.handlerNameLength = hdlr->GetHandlerNameSize();
  }
}

void Track::CopyHandlerName(void* buffer) const {
  if (!handlerName_.empty()) {
    std::memcpy(buffer, handlerName_.data(), handlerName_.size());
  }
}

uint32_t Track::GetSampleCount() const {
  const StszBox* stsz = trak_->GetStszBox();
  const uint32_t inTable = stsz == nullptr ? 0 : stsz->GetSampleCount();
  if (root_->GetMvexBox() == nullptr) {
    return inTable;
  }
  while (root_->ParseNext()) {
  }
  return inTable + static_cast<uint32_t>(root_->FragmentsOf(GetTrackId()).GetSampleCount());
}

std::unique_ptr<SampleDescriptorCollection> Track::GetSampleDescriptorCollection() const {
  const StsdBox* stsd = trak_->GetStsdBox();
  ThrowIf(stsd == nullptr, kQiroK7MErrorNoSampleDescriptionBox);
  std::vector<SampleDescriptor*> descriptors;
  descriptors.reserve(stsd->GetEntryCount());
  for (uint32_t index = 1; index <= stsd->GetEntryCount(); ++index) {
    descriptors.push_back(stsd->GetSampleEntry(index)->GetSampleDescriptor());
  }
  return std::make_unique<SampleDescriptorCollection>(std::move(descriptors));
}

uint32_t Track::GetEditCount() const {
  const ElstBox* elst = trak_->GetElstBox();
  return elst == nullptr ? 0 : static_cast<uint32_t>(elst->GetEntries().size());
}

const K7MEditListEntry& Track::GetEdit(uint32_t index) const {
  ThrowIf(index >= GetEditCount(), kQiroK7MErrorInvalidArgument);
  return trak_->GetElstBox()->GetEntries()[index];
}

}  // namespace qiro::k7m::impl
