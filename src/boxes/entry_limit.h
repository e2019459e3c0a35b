#pragma once

#include <cstdint>

namespace qiro::k7m::impl {

/// The largest number of entries that a table may have.
inline constexpr uint32_t kMaxEntryCount = 100000000;

}  // namespace qiro::k7m::impl
