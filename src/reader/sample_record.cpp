#include "reader/sample_record.h"

#include "boxes/stsd_box.h"

namespace qiro::k7m::impl {

QiroK7MSampleInfo SampleRecordOf(const Track& track, uint64_t timeStamp) {
  QiroK7MSampleInfo info{};
  info.timeStamp = timeStamp;
  info.timeScale = track.GetTimeScale();
  info.mediaType = track.GetMediaType();
  return info;
}

SampleDescriptor* DescriptorOf(const Track& track, uint32_t index) {
  const StsdBox* stsd = track.GetTrakBox()->GetStsdBox();
  const K7MSampleEntry* entry = stsd == nullptr ? nullptr : stsd->GetSampleEntry(index);
  return entry == nullptr ? nullptr : entry->GetSampleDescriptor();
}

std::unique_ptr<Sample> MakeGapSample(Track* track, uint64_t timeStamp) {
  QiroK7MSampleInfo info = SampleRecordOf(*track, timeStamp);
  info.flags = kQiroK7MSampleFlagGap;
  return std::make_unique<Sample>(info, 0, nullptr, track, nullptr);
}

}  // namespace qiro::k7m::impl
