#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace qiro::k7m::impl {

static_assert(std::endian::native == std::endian::little ||
              std::endian::native == std::endian::big);

inline uint16_t SwapToNative(uint16_t value) {
  return std::endian::native == std::endian::little ? __builtin_bswap16(value) : value;
}
inline uint32_t SwapToNative(uint32_t value) {
  return std::endian::native == std::endian::little ? __builtin_bswap32(value) : value;
}
inline uint64_t SwapToNative(uint64_t value) {
  return std::endian::native == std::endian::little ? __builtin_bswap64(value) : value;
}

/// Reads a big-endian number of the width of `T` (16, 32 or 64 bits) at any address.
template <class T>
T LoadBigEndian(const uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof(value));
  return SwapToNative(value);
}

/// Stores a number big-endian at any address.
template <class T>
void StoreBigEndian(uint8_t* bytes, T value) {
  const T swapped = SwapToNative(value);
  std::memcpy(bytes, &swapped, sizeof(swapped));
}

}  // namespace qiro::k7m::impl
