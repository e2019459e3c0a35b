#pragma once

#include "k7m/types.h"

namespace qiro::k7m::impl {

/// Gives the caller's bytes back, once: the release function is cleared. A null record and a null
/// function are ignored.
inline void ReleaseDataBuffer(QiroK7MDataBuffer* buffer) {
  if (buffer != nullptr && buffer->release != nullptr) {
    auto* const release = buffer->release;
    buffer->release = nullptr;
    release(buffer->clientData, buffer->data);
  }
}

/// The library's own copy of a caller's record.
class DataBuffer {
 public:
  explicit DataBuffer(const QiroK7MDataBuffer& buffer) : buffer_(buffer) {}

  void* Get() const { return buffer_.data; }
  uint32_t Length() const { return buffer_.length; }
  void Release() { ReleaseDataBuffer(&buffer_); }

 private:
  QiroK7MDataBuffer buffer_;
};

/// Gives the caller's bytes back at the end of a scope, also when an exception passes.
class AutoCleanupDataBuffer {
 public:
  explicit AutoCleanupDataBuffer(QiroK7MDataBuffer* buffer) : buffer_(buffer) {}
  AutoCleanupDataBuffer(const AutoCleanupDataBuffer&) = delete;
  AutoCleanupDataBuffer& operator=(const AutoCleanupDataBuffer&) = delete;
  ~AutoCleanupDataBuffer() { ReleaseDataBuffer(buffer_); }

 private:
  QiroK7MDataBuffer* buffer_;
};

}  // namespace qiro::k7m::impl
