/// @file bytes.h
/// Big-endian byte strings, built by appending. Shares no code with the library.
#ifndef K7M_TESTS_SUPPORT_BYTES_H
#define K7M_TESTS_SUPPORT_BYTES_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace k7mtest {

/// The number of a four-character code: 'vide' is 0x76696465.
constexpr uint32_t Code(std::string_view text) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) {
    value = value << 8 | static_cast<uint8_t>(i < text.size() ? text[i] : ' ');
  }
  return value;
}

class Bytes {
 public:
  Bytes() = default;
  Bytes(std::initializer_list<uint8_t> values) : data_(values) {}
  explicit Bytes(std::vector<uint8_t> values) : data_(std::move(values)) {}

  Bytes& U8(uint64_t value) { return Number(value, 1); }
  Bytes& U16(uint64_t value) { return Number(value, 2); }
  Bytes& U24(uint64_t value) { return Number(value, 3); }
  Bytes& U32(uint64_t value) { return Number(value, 4); }
  Bytes& U64(uint64_t value) { return Number(value, 8); }
  Bytes& Code(std::string_view text) { return U32(k7mtest::Code(text)); }
  Bytes& Text(std::string_view text) {
    data_.insert(data_.end(), text.begin(), text.end());
    return *this;
  }
  /// `count` times the same byte.
  Bytes& Fill(size_t count, uint8_t value = 0) {
    data_.insert(data_.end(), count, value);
    return *this;
  }
  Bytes& Append(const Bytes& other) {
    const std::vector<uint8_t> copy = other.data_;  // `other` may be this object.
    data_.insert(data_.end(), copy.begin(), copy.end());
    return *this;
  }
  /// Overwrites `width` bytes at `offset` with a big-endian number.
  Bytes& Patch(size_t offset, uint64_t value, size_t width = 4) {
    for (size_t i = 0; i < width; ++i) {
      data_.at(offset + i) = static_cast<uint8_t>(value >> (8 * (width - 1 - i)));
    }
    return *this;
  }

  size_t Size() const { return data_.size(); }
  bool Empty() const { return data_.empty(); }
  const uint8_t* Data() const { return data_.data(); }
  uint8_t* Data() { return data_.data(); }
  uint8_t operator[](size_t index) const { return data_.at(index); }
  uint8_t& operator[](size_t index) { return data_.at(index); }
  auto begin() const { return data_.begin(); }
  auto end() const { return data_.end(); }
  const std::vector<uint8_t>& Vector() const { return data_; }

  /// The number of `width` bytes at `offset`.
  uint64_t NumberAt(size_t offset, size_t width = 4) const {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) value = value << 8 | data_.at(offset + i);
    return value;
  }
  Bytes Slice(size_t offset, size_t size) const {
    return Bytes(std::vector<uint8_t>(data_.begin() + static_cast<std::ptrdiff_t>(offset),
                                      data_.begin() + static_cast<std::ptrdiff_t>(offset + size)));
  }

  friend Bytes operator+(Bytes left, const Bytes& right) { return left.Append(right); }
  friend bool operator==(const Bytes& left, const Bytes& right) = default;
  friend std::ostream& operator<<(std::ostream& out, const Bytes& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    out << bytes.Size() << " bytes:";
    for (const uint8_t byte : bytes) out << ' ' << kDigits[byte >> 4] << kDigits[byte & 15];
    return out;
  }

 private:
  Bytes& Number(uint64_t value, size_t width) {
    for (size_t i = width; i-- > 0;) data_.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return *this;
  }

  std::vector<uint8_t> data_;
};

/// The first `size` bytes; all of them when there are fewer.
inline Bytes Cut(const Bytes& bytes, size_t size) {
  return bytes.Slice(0, size < bytes.Size() ? size : bytes.Size());
}

inline std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

/// `size` bytes that differ from their neighbours and from those of another `seed`.
inline Bytes Pattern(size_t size, uint32_t seed = 0) {
  Bytes bytes;
  uint32_t state = seed * 2654435761u + 12345u;
  for (size_t i = 0; i < size; ++i) {
    state = state * 1664525u + 1013904223u;
    bytes.U8(state >> 24);
  }
  return bytes;
}

}  // namespace k7mtest

#endif
