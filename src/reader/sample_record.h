#pragma once

#include <memory>

#include "boxes/sample.h"
#include "boxes/track.h"

namespace qiro::k7m::impl {

/// The record that every sample of a track starts with.
QiroK7MSampleInfo SampleRecordOf(const Track& track, uint64_t timeStamp);
/// The descriptor with a 1-based index; null when the track has none.
SampleDescriptor* DescriptorOf(const Track& track, uint32_t index);
/// What an empty edit gives.
std::unique_ptr<Sample> MakeGapSample(Track* track, uint64_t timeStamp);

}  // namespace qiro::k7m::impl
