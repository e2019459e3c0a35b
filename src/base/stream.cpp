#include "base/stream.h"

#include <array>

namespace qiro::k7m::impl {
namespace {

template <class T>
T ReadNumber(QiroK7MStream& stream) {
  std::array<uint8_t, sizeof(T)> bytes;
  stream.Read(bytes.data(), bytes.size());
  return LoadBigEndian<T>(bytes.data());
}

}  // namespace

uint8_t QiroK7MStream::ReadBYTE() {
  uint8_t value = 0;
  Read(&value, 1);
  return value;
}

uint16_t QiroK7MStream::ReadWORD() { return ReadNumber<uint16_t>(*this); }
uint32_t QiroK7MStream::ReadDWORD() { return ReadNumber<uint32_t>(*this); }
uint64_t QiroK7MStream::ReadDDWORD() { return ReadNumber<uint64_t>(*this); }

uint32_t QiroK7MStream::ReadNByteNumber(uint32_t byteCount) {
  ThrowIf(byteCount < 1 || byteCount > 4, kQiroK7MErrorInvalidArgument);
  std::array<uint8_t, 4> bytes{};
  Read(bytes.data() + (4 - byteCount), byteCount);
  return LoadBigEndian<uint32_t>(bytes.data());
}

bool QiroK7MStream::CanRead(uint64_t byteCount) {
  const uint64_t position = Tell();
  const auto fits = [&](uint64_t length) {
    return position <= length && byteCount <= length - position;
  };
  return fits(CachedLength()) || fits(Length());
}

bool QiroK7MStream::Reaches(uint64_t offset) {
  return offset <= CachedLength() || offset <= Length();
}

void QiroK7MStream::ReserveSpace(uint64_t byteCount) {
  if (byteCount == 0) {
    return;
  }
  Seek(static_cast<int64_t>(byteCount - 1), kQiroK7MSeekFromCurrent);
  WriteBYTE(0);
}

void QiroK7MStream::SeekTo(uint64_t offset) {
  ThrowIf(offset > kMaxStreamOffset, kQiroK7MErrorBoxTruncated);
  Seek(static_cast<int64_t>(offset), kQiroK7MSeekFromStart);
}

}  // namespace qiro::k7m::impl
