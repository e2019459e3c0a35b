#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/big_endian.h"

namespace qiro::k7m::impl {

/// Reads big-endian numbers from memory as a stream reads them from a file. The caller has checked
/// that they are there.
class ByteReader {
 public:
  explicit ByteReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

  uint32_t ReadDWORD() { return Read<uint32_t>(); }
  uint64_t ReadDDWORD() { return Read<uint64_t>(); }
  size_t Left() const { return rest_.size(); }
  std::span<const uint8_t> Rest() const { return rest_; }

 private:
  template <class T>
  T Read() {
    const T value = LoadBigEndian<T>(rest_.data());
    rest_ = rest_.subspan(sizeof(T));
    return value;
  }

  std::span<const uint8_t> rest_;
};

}  // namespace qiro::k7m::impl
