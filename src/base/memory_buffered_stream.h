#pragma once

#include <vector>

#include "base/stream.h"

namespace qiro::k7m::impl {

/// Gathers writes to another stream in a buffer. The library makes none itself; the operations that
/// a concrete buffered stream needs beyond these stay abstract.
class QiroK7MMemoryBufferedStream : public QiroK7MStream {
 public:
  /// `wrapped` is not owned. The two parameters are kept for the owner and mean nothing here.
  QiroK7MMemoryBufferedStream(QiroK7MStream* wrapped, uint32_t firstParameter,
                              uint32_t secondParameter, uint32_t capacity);

  /// `flushed` (may be null) becomes 1 when the buffer went out, else 0.
  uint64_t Write(const void* buffer, uint64_t length, uint32_t* flushed) override;
  void Read(void* buffer, uint64_t length) override;
  void Seek(int64_t offset, QiroK7MSeekPos origin) override;
  /// Where in the wrapped stream the buffer's contents belong.
  uint64_t Tell() override { return position_; }
  void Close() override;
  void Flush();

  uint32_t FirstParameter() const { return firstParameter_; }
  uint32_t SecondParameter() const { return secondParameter_; }

 private:
  QiroK7MStream* wrapped_;
  uint32_t firstParameter_;
  uint32_t secondParameter_;
  uint64_t position_ = 0;
  std::vector<uint8_t> buffer_;
  uint32_t used_ = 0;
  uint32_t capacity_;
};

}  // namespace qiro::k7m::impl
