#pragma once

#include <cstdint>

#include "k7m/types.h"

namespace qiro::k7m::impl {

/// Seconds since 1 January 1904, 00:00:00.
uint64_t ConvertDateTimeToSeconds(const QiroK7MDateTime& dateTime);
/// Leaves the record's first byte as it is. Years beyond 65535 give the last second of 65535.
void ConvertSecondsToDateTime(uint64_t seconds, QiroK7MDateTime* dateTime);

}  // namespace qiro::k7m::impl
