/// @file media_time.h
/// Points in time as whole numbers of units, and their decimal form.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qiro::k7m::tool {

/// A number of units, of which `scale` make a second.
struct MediaTime {
  uint64_t value = 0;
  uint32_t scale = 1;
};

/// "12.345678": exact to the microsecond, rounded to the nearest; "-" when the scale is 0.
std::string SecondsText(MediaTime time);
/// For JSON and arithmetic; 0 when the scale is 0.
double Seconds(MediaTime time);
/// Reads "12" or "12.345" with up to six decimals, at most ten years of 365 days. The result has
/// the smallest scale that is a power of ten and represents the text exactly.
std::optional<MediaTime> ParseSeconds(std::string_view text);
/// The time with fewer decimals, rounded down, until its conversion to `targetScale` fits 64 bits.
MediaTime ShortenedFor(MediaTime time, uint32_t targetScale);
/// Whether `a` is earlier than `b`; exact for all values. Both scales must not be 0.
bool IsEarlier(MediaTime a, MediaTime b);
/// A number of units of one scale in another: to the nearest, half a unit up; or not rounded down.
/// From scale 0 everything is 0; results beyond 64 bits wrap.
uint64_t RescaledToNearest(uint64_t value, uint32_t from, uint32_t to);
uint64_t RescaledUp(uint64_t value, uint32_t from, uint32_t to);

}  // namespace qiro::k7m::tool
