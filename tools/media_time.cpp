#include "media_time.h"

#include <cstdio>
#include <limits>

namespace qiro::k7m::tool {
namespace {

constexpr uint64_t kMicro = 1000000;
constexpr uint64_t kLatestSeconds = 315360000;  // The library delivers nothing behind it.

}  // namespace

std::string SecondsText(MediaTime time) {
  if (time.scale == 0) return "-";
  uint64_t seconds = time.value / time.scale;
  // The remainder is below 2^32, so that the product stays far below 2^64.
  uint64_t micros = (time.value % time.scale * kMicro + time.scale / 2) / time.scale;
  if (micros == kMicro) {
    ++seconds;
    micros = 0;
  }
  char text[40];
  std::snprintf(text, sizeof text, "%llu.%06llu", static_cast<unsigned long long>(seconds),
                static_cast<unsigned long long>(micros));
  return text;
}

double Seconds(MediaTime time) {
  return time.scale == 0 ? 0.0 : static_cast<double>(time.value) / time.scale;
}

std::optional<MediaTime> ParseSeconds(std::string_view text) {
  MediaTime time;
  bool behindPoint = false;
  bool hasDigit = false;
  for (const char character : text) {
    if (character == '.' && !behindPoint) {
      behindPoint = true;
      continue;
    }
    if (character < '0' || character > '9') return std::nullopt;
    if (behindPoint && time.scale == kMicro) return std::nullopt;
    if (behindPoint) time.scale *= 10;
    time.value = time.value * 10 + static_cast<uint64_t>(character - '0');
    if (time.value > kLatestSeconds * time.scale) return std::nullopt;
    hasDigit = true;
  }
  if (!hasDigit) return std::nullopt;
  return time;
}

MediaTime ShortenedFor(MediaTime time, uint32_t targetScale) {
  const uint64_t largest = std::numeric_limits<uint64_t>::max() / (uint64_t{targetScale} + 1);
  while (time.value > largest && time.scale >= 10) {
    time.value /= 10;
    time.scale /= 10;
  }
  return time;
}

bool IsEarlier(MediaTime a, MediaTime b) {
  const uint64_t aSeconds = a.value / a.scale;
  const uint64_t bSeconds = b.value / b.scale;
  if (aSeconds != bSeconds) return aSeconds < bSeconds;
  return a.value % a.scale * b.scale < b.value % b.scale * a.scale;
}

uint64_t RescaledToNearest(uint64_t value, uint32_t from, uint32_t to) {
  if (from == 0) return 0;
  return value / from * to + (value % from * to + from / 2) / from;
}

uint64_t RescaledUp(uint64_t value, uint32_t from, uint32_t to) {
  if (from == 0) return 0;
  return value / from * to + (value % from * to + from - 1) / from;
}

}  // namespace qiro::k7m::tool
