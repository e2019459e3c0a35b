#include "boxes/track_run.h"

#include <algorithm>

namespace qiro::k7m::impl {

TrackRun::TrackRun(const RunHeader& header, uint64_t base, uint64_t dataStart,
                   const SampleDefaults& defaults)
    : dataStart_(header.Has(RunHeader::kDataOffsetPresent)
                     ? base + static_cast<uint64_t>(int64_t{header.dataOffset})
                     : dataStart),
      defaults_(defaults),
      firstSampleFlags_(header.Has(RunHeader::kFirstSampleFlagsPresent) ? header.firstSampleFlags
                                                                        : defaults.flags),
      sampleCount_(header.sampleCount) {
  const auto slotIf = [&](uint32_t flag) -> uint8_t {
    return header.Has(flag) ? recordLength_++ : kAbsent;
  };
  durationSlot_ = slotIf(RunHeader::kDurationPresent);
  sizeSlot_ = slotIf(RunHeader::kSizePresent);
  flagsSlot_ = slotIf(RunHeader::kFlagsPresent);
  compositionSlot_ = slotIf(RunHeader::kCompositionOffsetPresent);
  if (recordLength_ == 0) {
    totalDuration_ = uint64_t{defaults_.duration} * sampleCount_;
    totalSize_ = uint64_t{defaults_.size} * sampleCount_;
  }
}

void TrackRun::SetRecords(const uint32_t* records, Place* places) {
  records_ = records;
  places_ = places;
  for (uint32_t index = 0; index < sampleCount_; ++index) {
    if (index % kStretch == 0 && index != 0) {
      *places++ = {totalDuration_, totalSize_};
    }
    totalDuration_ += DurationOf(index);
    totalSize_ += SizeOf(index);
  }
}

void TrackRun::Count(const SampleInfoTrun& sample, const uint32_t* records) {
  records_ = records;
  totalDuration_ += sample.duration;
  totalSize_ += sample.size;
  ++sampleCount_;
}

TrackRun::Place TrackRun::PlaceOf(uint32_t index) const {
  if (durationSlot_ == kAbsent && sizeSlot_ == kAbsent) {
    return {uint64_t{defaults_.duration} * index, uint64_t{defaults_.size} * index};
  }
  Place place = StretchStart(index / kStretch);
  for (uint32_t i = index - index % kStretch; i < index; ++i) {
    place.time += DurationOf(i);
    place.offset += SizeOf(i);
  }
  return place;
}

std::optional<uint32_t> TrackRun::FindFirstAtOrAfter(uint64_t time) const {
  if (sampleCount_ == 0 || LastTimeStamp() < time) {
    return std::nullopt;
  }
  if (startTime_ >= time) {
    return 0;
  }
  const uint64_t wanted = time - startTime_;
  if (durationSlot_ == kAbsent) {
    // The last sample is at or after the time and the first is not: the duration is not 0.
    return static_cast<uint32_t>((wanted + defaults_.duration - 1) / defaults_.duration);
  }
  const Place* const placesEnd = places_ + (sampleCount_ - 1) / kStretch;
  const auto* const after = std::partition_point(
      places_, placesEnd, [wanted](const Place& place) { return place.time < wanted; });
  const auto stretch = static_cast<uint32_t>(after - places_);
  uint32_t index = stretch * kStretch;
  for (uint64_t at = StretchStart(stretch).time; at < wanted; ++index) {
    at += DurationOf(index);
  }
  return index;
}

}  // namespace qiro::k7m::impl
