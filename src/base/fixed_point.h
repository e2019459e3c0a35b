#pragma once

#include <cstdint>

namespace qiro::k7m::impl {

inline float Convert88ToFloat(uint16_t value) { return static_cast<float>(value) / 256.0F; }
inline float Convert1616ToFloat(uint32_t value) {
  return static_cast<float>(static_cast<double>(value) / 65536.0);
}

/// A fixed-point number with `kIntegerBits` before and `kFractionBits` behind the point.
template <unsigned kIntegerBits, unsigned kFractionBits>
float ConvertToFloat32(uint32_t value) {
  static_assert(kIntegerBits + kFractionBits == 32);
  return static_cast<float>(static_cast<double>(value) /
                            static_cast<double>(uint64_t{1} << kFractionBits));
}

/// Truncates `scaled` to a whole number and keeps its low 64 bits; 0 where no such number exists.
inline uint64_t TruncateToBits(double scaled) {
  constexpr double kLimit = 9223372036854775808.0;
  if (!(scaled > -kLimit && scaled < kLimit)) {
    return 0;
  }
  return static_cast<uint64_t>(static_cast<int64_t>(scaled));
}

inline uint16_t ConvertFloatTo88(float value) {
  return static_cast<uint16_t>(TruncateToBits(static_cast<double>(value) * 256.0));
}
inline uint32_t ConvertFloatTo1616(float value) {
  return static_cast<uint32_t>(TruncateToBits(static_cast<double>(value) * 65536.0));
}

}  // namespace qiro::k7m::impl
