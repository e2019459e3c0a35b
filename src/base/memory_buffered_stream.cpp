#include "base/memory_buffered_stream.h"

#include <cstring>

namespace qiro::k7m::impl {

QiroK7MMemoryBufferedStream::QiroK7MMemoryBufferedStream(QiroK7MStream* wrapped,
                                                         uint32_t firstParameter,
                                                         uint32_t secondParameter,
                                                         uint32_t capacity)
    : wrapped_(wrapped),
      firstParameter_(firstParameter),
      secondParameter_(secondParameter),
      buffer_(capacity),
      capacity_(capacity) {}

uint64_t QiroK7MMemoryBufferedStream::Write(const void* buffer, uint64_t length,
                                            uint32_t* flushed) {
  const auto* bytes = static_cast<const uint8_t*>(buffer);
  const uint64_t room = capacity_ - used_;
  const uint64_t gathered = length < room ? length : room;
  if (gathered != 0) {
    std::memcpy(buffer_.data() + used_, bytes, gathered);
  }
  used_ += static_cast<uint32_t>(gathered);
  const bool isFull = used_ == capacity_;
  if (isFull || length > room) {
    Flush();
  }
  if (length > room) {
    wrapped_->Write(bytes + gathered, length - gathered, nullptr);
    position_ += length - gathered;
  }
  if (flushed != nullptr) {
    *flushed = isFull ? 1 : 0;
  }
  return length;
}

void QiroK7MMemoryBufferedStream::Read(void* buffer, uint64_t length) {
  Flush();
  wrapped_->Read(buffer, length);
  position_ += length;
}

void QiroK7MMemoryBufferedStream::Seek(int64_t offset, QiroK7MSeekPos origin) {
  Flush();
  wrapped_->Seek(offset, origin);
  position_ = wrapped_->Tell();
}

void QiroK7MMemoryBufferedStream::Close() {
  Flush();
  wrapped_->Close();
}

void QiroK7MMemoryBufferedStream::Flush() {
  // The origin is deliberately "from the current position", although the offset counts from the
  // start.
  wrapped_->Seek(static_cast<int64_t>(position_), kQiroK7MSeekFromCurrent);
  wrapped_->Write(buffer_.data(), used_, nullptr);
  position_ += used_;
  used_ = 0;
}

}  // namespace qiro::k7m::impl
