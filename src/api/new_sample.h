#pragma once

#include "api/writer_frame.h"

namespace qiro::k7m::impl {

/// What every function that adds a sample checks first: errors 8 for another media type than the
/// track's, 11 for size 0 without a gap, 20 and 1030 for missing bytes, 10 for time scale 0.
void CheckNewSample(const Track& track, const Sample& sample, const QiroK7MDataBuffer* data);

}  // namespace qiro::k7m::impl
