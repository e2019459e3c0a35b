#pragma once

#include <cstdint>

#include "base/big_endian.h"

namespace qiro::k7m::impl {

/// A cursor over bytes in memory.
class Data {
 public:
  Data() = default;
  Data(uint8_t* current, uint64_t length) : current_(current), end_(current + length) {}

  uint8_t* Current() const { return current_; }
  uint64_t Length() const { return static_cast<uint64_t>(end_ - current_); }
  void Move(uint64_t byteCount) { current_ += byteCount; }
  void SetLength(uint64_t length) { end_ = current_ + length; }

 private:
  uint8_t* current_ = nullptr;
  uint8_t* end_ = nullptr;
};

/// A cursor that also knows where in a stream its bytes come from.
class StreamedData : public Data {
 public:
  StreamedData() = default;
  StreamedData(uint8_t* current, uint64_t length, uint64_t offset)
      : Data(current, length), offset_(offset) {}

  uint64_t Offset() const { return offset_; }
  void Move(uint64_t byteCount) {
    Data::Move(byteCount);
    offset_ += byteCount;
  }

 private:
  uint64_t offset_ = 0;
};

/// Returns 0 without moving when the cursor is at its end.
inline uint8_t ReadBYTE(Data& data) {
  if (data.Length() == 0) {
    return 0;
  }
  const uint8_t value = *data.Current();
  data.Move(1);
  return value;
}
inline uint16_t ReadWORD(Data& data) {
  const uint32_t high = ReadBYTE(data);
  return static_cast<uint16_t>(high << 8 | ReadBYTE(data));
}
inline uint32_t ReadDWORD(Data& data) {
  const uint32_t high = ReadWORD(data);
  return high << 16 | ReadWORD(data);
}
inline uint64_t ReadDDWORD(Data& data) {
  const uint64_t high = ReadDWORD(data);
  return high << 32 | ReadDWORD(data);
}
/// Does not check the bounds: the caller knows that 4 bytes are there.
inline void WriteDWORD(Data& data, uint32_t value) {
  StoreBigEndian(data.Current(), value);
  data.Move(4);
}

}  // namespace qiro::k7m::impl
