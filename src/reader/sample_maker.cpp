#include "reader/sample_maker.h"

#include "boxes/stsd_box.h"

namespace qiro::k7m::impl {

SampleMaker::SampleMaker(Track* track, SampleDataCache* cache) : track_(track), cache_(cache) {
  common_.timeScale = track->GetTimeScale();
  common_.mediaType = track->GetMediaType();
}

SampleDescriptor* SampleMaker::DescriptorOf(uint32_t index) {
  if (index != descriptionIndex_) {
    const StsdBox* stsd = track_->GetTrakBox()->GetStsdBox();
    const K7MSampleEntry* entry = stsd == nullptr ? nullptr : stsd->GetSampleEntry(index);
    descriptor_ = entry == nullptr ? nullptr : entry->GetSampleDescriptor();
    descriptionIndex_ = index;
  }
  return descriptor_;
}

std::unique_ptr<Sample> SampleMaker::Make(uint64_t timeStamp, const Record& record) {
  QiroK7MSampleInfo info = common_;
  info.timeStamp = timeStamp;
  info.sampleSize = record.size;
  info.compositionOffset = record.compositionOffset;
  info.flags = record.flags;
  return std::make_unique<Sample>(info, record.dataOffset, DescriptorOf(record.descriptionIndex),
                                  track_, cache_);
}

std::unique_ptr<Sample> SampleMaker::MakeGap(uint64_t timeStamp) const {
  QiroK7MSampleInfo info = common_;
  info.timeStamp = timeStamp;
  info.flags = kQiroK7MSampleFlagGap;
  return std::make_unique<Sample>(info, 0, nullptr, track_, nullptr);
}

}  // namespace qiro::k7m::impl
