#pragma once

#include <span>

#include "api/frame.h"
#include "base/data_buffer.h"
#include "k7m/writer.h"
#include "writer/writer.h"

namespace qiro::k7m::impl {

inline Writer& Impl(QiroK7MWriter* handle) { return *reinterpret_cast<Writer*>(handle); }
inline QiroK7MWriter* AsHandle(Writer* writer) { return reinterpret_cast<QiroK7MWriter*>(writer); }

/// As ApiCall(), and the writer takes note of a failure. `writer` may be null.
template <class Work>
QiroK7MError WriterCall(QiroK7MWriter* writer, Work&& work) noexcept {
  const QiroK7MError result = GuardedCall(std::forward<Work>(work));
  if (writer != nullptr) {
    Impl(writer).SetWriterStateBad(result);
  }
  return result;
}

/// Error 48 unless the writer is good.
inline void RequireGood(QiroK7MWriter* writer) {
  ThrowIf(!Impl(writer).IsWriterStateGood(), kQiroK7MErrorWriterStateBad);
}

/// Error 20 when the buffer holds no bytes at all. It may be null for length 0.
inline void RequireBytes(const QiroK7MDataBuffer* buffer, uint64_t length) {
  ThrowIf(length != 0 && (buffer == nullptr || buffer->data == nullptr),
          kQiroK7MErrorInvalidArgument);
}

/// The first `length` bytes of a buffer. Error 20 when there are none, 1030 when there are fewer.
/// The buffer may be null for length 0.
inline std::span<const uint8_t> BytesOf(const QiroK7MDataBuffer* buffer, uint64_t length) {
  RequireBytes(buffer, length);
  if (length == 0) {
    return {};
  }
  ThrowIf(buffer->length < length, kQiroK7MErrorSampleDataShort);
  return {static_cast<const uint8_t*>(buffer->data), length};
}

}  // namespace qiro::k7m::impl
