#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include "base/big_endian.h"
#include "base/date_time.h"
#include "base/fixed_point.h"
#include "boxes/field_sink.h"

namespace qiro::k7m::impl {

/// Walks over the list of fields that a box spells once in its member `Fields(walk)`:
///   U8, U16, U32, U64(name, variable)   unsigned number of that width in the file
///   Versioned(name, variable)           64 bits when the box's version is not 0, else 32
///   Date(name, variable)                the same, as seconds since 1904
///   Fixed88, Fixed1616(name, variable)  fixed-point number held as a float
///   Code(name, variable)                four-character code
///   U32s(name, array), Bytes(name, array)
///   Reserved(n)                         n bytes written as 0 and dropped when read
///   Constant16(value)                   16 bits written as `value` and dropped when read

/// Counts the bytes.
class SizeWalk {
 public:
  explicit SizeWalk(bool isWide) : isWide_(isWide) {}
  uint64_t Size() const { return size_; }

  template <class T>
  void U8(const char*, const T&) {
    size_ += 1;
  }
  template <class T>
  void U16(const char*, const T&) {
    size_ += 2;
  }
  template <class T>
  void U32(const char*, const T&) {
    size_ += 4;
  }
  template <class T>
  void U64(const char*, const T&) {
    size_ += 8;
  }
  template <class T>
  void Versioned(const char*, const T&) {
    size_ += isWide_ ? 8 : 4;
  }
  void Date(const char*, const QiroK7MDateTime&) { size_ += isWide_ ? 8 : 4; }
  void Fixed88(const char*, float) { size_ += 2; }
  void Fixed1616(const char*, float) { size_ += 4; }
  void Code(const char*, uint32_t) { size_ += 4; }
  template <size_t kCount>
  void U32s(const char*, const std::array<uint32_t, kCount>&) {
    size_ += 4 * kCount;
  }
  template <size_t kCount>
  void Bytes(const char*, const std::array<uint8_t, kCount>&) {
    size_ += kCount;
  }
  void Reserved(uint32_t byteCount) { size_ += byteCount; }
  void Constant16(uint16_t) { size_ += 2; }

 private:
  uint64_t size_ = 0;
  bool isWide_;
};

/// Reads the fields from memory that holds all of them.
class LoadWalk {
 public:
  LoadWalk(const uint8_t* bytes, bool isWide) : bytes_(bytes), isWide_(isWide) {}

  template <class T>
  void U8(const char*, T& value) {
    value = static_cast<T>(*bytes_++);
  }
  template <class T>
  void U16(const char*, T& value) {
    value = static_cast<T>(Load<uint16_t>());
  }
  template <class T>
  void U32(const char*, T& value) {
    value = static_cast<T>(Load<uint32_t>());
  }
  template <class T>
  void U64(const char*, T& value) {
    value = static_cast<T>(Load<uint64_t>());
  }
  template <class T>
  void Versioned(const char*, T& value) {
    value = static_cast<T>(LoadVersioned());
  }
  void Date(const char*, QiroK7MDateTime& value) {
    ConvertSecondsToDateTime(LoadVersioned(), &value);
  }
  void Fixed88(const char*, float& value) { value = Convert88ToFloat(Load<uint16_t>()); }
  void Fixed1616(const char*, float& value) { value = ConvertToFloat32<16, 16>(Load<uint32_t>()); }
  void Code(const char*, uint32_t& value) { value = Load<uint32_t>(); }
  template <size_t kCount>
  void U32s(const char*, std::array<uint32_t, kCount>& values) {
    for (uint32_t& value : values) {
      value = Load<uint32_t>();
    }
  }
  template <size_t kCount>
  void Bytes(const char*, std::array<uint8_t, kCount>& values) {
    std::memcpy(values.data(), bytes_, kCount);
    bytes_ += kCount;
  }
  void Reserved(uint32_t byteCount) { bytes_ += byteCount; }
  void Constant16(uint16_t) { bytes_ += 2; }

 private:
  template <class T>
  T Load() {
    const T value = LoadBigEndian<T>(bytes_);
    bytes_ += sizeof(T);
    return value;
  }
  uint64_t LoadVersioned() { return isWide_ ? Load<uint64_t>() : Load<uint32_t>(); }

  const uint8_t* bytes_;
  bool isWide_;
};

/// Writes the fields into memory that has room for all of them.
class StoreWalk {
 public:
  StoreWalk(uint8_t* bytes, bool isWide) : bytes_(bytes), isWide_(isWide) {}

  template <class T>
  void U8(const char*, const T& value) {
    *bytes_++ = static_cast<uint8_t>(value);
  }
  template <class T>
  void U16(const char*, const T& value) {
    Store(static_cast<uint16_t>(value));
  }
  template <class T>
  void U32(const char*, const T& value) {
    Store(static_cast<uint32_t>(value));
  }
  template <class T>
  void U64(const char*, const T& value) {
    Store(static_cast<uint64_t>(value));
  }
  template <class T>
  void Versioned(const char*, const T& value) {
    StoreVersioned(static_cast<uint64_t>(value));
  }
  void Date(const char*, const QiroK7MDateTime& value) {
    StoreVersioned(ConvertDateTimeToSeconds(value));
  }
  void Fixed88(const char*, float value) { Store(ConvertFloatTo88(value)); }
  void Fixed1616(const char*, float value) { Store(ConvertFloatTo1616(value)); }
  void Code(const char*, uint32_t value) { Store(value); }
  template <size_t kCount>
  void U32s(const char*, const std::array<uint32_t, kCount>& values) {
    for (const uint32_t value : values) {
      Store(value);
    }
  }
  template <size_t kCount>
  void Bytes(const char*, const std::array<uint8_t, kCount>& values) {
    std::memcpy(bytes_, values.data(), kCount);
    bytes_ += kCount;
  }
  void Reserved(uint32_t byteCount) {
    std::memset(bytes_, 0, byteCount);
    bytes_ += byteCount;
  }
  void Constant16(uint16_t value) { Store(value); }

 private:
  template <class T>
  void Store(T value) {
    StoreBigEndian(bytes_, value);
    bytes_ += sizeof(T);
  }
  void StoreVersioned(uint64_t value) {
    if (isWide_) {
      Store(value);
    } else {
      Store(static_cast<uint32_t>(value));
    }
  }

  uint8_t* bytes_;
  bool isWide_;
};

/// Reports the fields to a sink.
class DescribeWalk {
 public:
  explicit DescribeWalk(FieldSink& sink) : sink_(sink) {}

  template <class T>
  void U8(const char* name, const T& value) {
    sink_.Number(name, value);
  }
  template <class T>
  void U16(const char* name, const T& value) {
    sink_.Number(name, value);
  }
  template <class T>
  void U32(const char* name, const T& value) {
    sink_.Number(name, value);
  }
  template <class T>
  void U64(const char* name, const T& value) {
    sink_.Number(name, value);
  }
  template <class T>
  void Versioned(const char* name, const T& value) {
    sink_.Number(name, value);
  }
  void Date(const char* name, const QiroK7MDateTime& value) { sink_.Date(name, value); }
  void Fixed88(const char* name, float value) { sink_.Real(name, value); }
  void Fixed1616(const char* name, float value) { sink_.Real(name, value); }
  void Code(const char* name, uint32_t value) { sink_.Code(name, value); }
  template <size_t kCount>
  void U32s(const char* name, const std::array<uint32_t, kCount>& values) {
    DescribeTable(sink_, name, values, [this](uint32_t value) { sink_.Number("value", value); });
  }
  template <size_t kCount>
  void Bytes(const char* name, const std::array<uint8_t, kCount>& values) {
    sink_.Bytes(name, std::span<const uint8_t>(values));
  }
  void Reserved(uint32_t) {}
  void Constant16(uint16_t) {}

 private:
  FieldSink& sink_;
};

}  // namespace qiro::k7m::impl
