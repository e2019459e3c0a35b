#pragma once

#include <cstdint>
#include <vector>

namespace qiro::k7m::impl {

/// A copy of a handler name that ends with a 0, unless it is empty.
inline std::vector<uint8_t> TerminatedHandlerName(const void* name, uint32_t length) {
  std::vector<uint8_t> copy;
  if (length != 0) {
    const auto* bytes = static_cast<const uint8_t*>(name);
    copy.reserve(uint64_t{length} + 1);
    copy.assign(bytes, bytes + length);
    if (copy.back() != 0) {
      copy.push_back(0);
    }
  }
  return copy;
}

}  // namespace qiro::k7m::impl
