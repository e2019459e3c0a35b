#include "reader/sample_maker.h"

#include "boxes/stsd_box.h"

namespace qiro::k7m::impl {

SampleMaker::SampleMaker(Track* track, SampleDataCache* cache) : track_(track), cache_(cache) {
  common_.timeScale = track->GetTimeScale();
  common_.mediaType = track->GetMediaType();
}

void SampleMaker::TakeDescriptor(uint32_t index) {
  const StsdBox* stsd = track_->GetTrakBox()->GetStsdBox();
  const K7MSampleEntry* entry = stsd == nullptr ? nullptr : stsd->GetSampleEntry(index);
  descriptor_ = entry == nullptr ? nullptr : entry->GetSampleDescriptor();
  descriptionIndex_ = index;
}

std::unique_ptr<Sample> SampleMaker::MakeGap(uint64_t timeStamp) const {
  QiroK7MSampleInfo info = common_;
  info.timeStamp = timeStamp;
  info.flags = kQiroK7MSampleFlagGap;
  return std::make_unique<Sample>(info, 0, nullptr, track_, nullptr);
}

}  // namespace qiro::k7m::impl
