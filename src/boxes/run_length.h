#pragma once

#include <array>
#include <cstdint>

#include "base/big_endian.h"

namespace qiro::k7m::impl {

/// A run that is not in the file yet; none when its count is 0.
struct PendingRun {
  uint32_t count = 0;
  uint32_t value = 0;
};

/// An entry of 'stts' or 'ctts' as it stands in the file: how many samples, and their common value.
inline std::array<uint8_t, 8> EncodeRun(uint32_t count, uint32_t value) {
  std::array<uint8_t, 8> bytes;
  StoreBigEndian(bytes.data(), count);
  StoreBigEndian(bytes.data() + 4, value);
  return bytes;
}

}  // namespace qiro::k7m::impl
