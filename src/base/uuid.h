#pragma once

#include <array>
#include <cstdint>

namespace qiro::k7m::impl {

using QiroK7MUUID = std::array<uint8_t, 16>;

/// 1 when all 16 bytes are equal, else 0.
inline int CompareUuids(const QiroK7MUUID& a, const QiroK7MUUID& b) { return a == b ? 1 : 0; }

}  // namespace qiro::k7m::impl
