#pragma once

#include <cstdint>

namespace qiro::k7m::impl {

/// A four-character code as the big-endian number that stands in files.
constexpr uint32_t FourCc(const char (&text)[5]) {
  uint32_t code = 0;
  for (int i = 0; i < 4; ++i) {
    code = code << 8 | static_cast<uint8_t>(text[i]);
  }
  return code;
}

}  // namespace qiro::k7m::impl
