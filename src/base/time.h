#pragma once

#include <cstdint>

namespace qiro::k7m::impl {

/// Quotients of a 64-bit number by a 32-bit divisor that is not 0: counts of whole divisors. Sums
/// that pass 64 bits wrap.
inline uint64_t RoundFloor(uint64_t value, uint32_t divisor) { return value / divisor; }
inline uint64_t RoundCeil(uint64_t value, uint32_t divisor) {
  return (value + divisor - 1) / divisor;
}
/// An exact half rounds down for an even divisor.
inline uint64_t RoundNearest(uint64_t value, uint32_t divisor) {
  return (value + (divisor - 1) / 2) / divisor;
}

/// A number of units of a time scale (units per second).
class Time {
 public:
  Time(uint64_t value, uint32_t timeScale) : value_(value), timeScale_(timeScale) {}

  uint64_t GetValueInUnits() const { return value_; }
  uint32_t GetTimeScale() const { return timeScale_; }
  uint64_t GetValueInTimeScaleUnits(uint32_t timeScale) const {
    return ConvertTimeScale(value_, timeScale_, timeScale);
  }

  /// The product is taken in 64 bits and wraps silently. To scale 0 everything is 0; from scale 0,
  /// which only a file can ask for, everything is 0 as well.
  static uint64_t ConvertTimeScale(uint64_t value, uint32_t from, uint32_t to) {
    if (from == to) {
      return value;
    }
    return from == 0 ? 0 : RoundNearest(value * to, from);
  }

 private:
  uint64_t value_;
  uint32_t timeScale_;
};

}  // namespace qiro::k7m::impl
