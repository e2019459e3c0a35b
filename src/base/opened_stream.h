#pragma once

#include <memory>

#include "base/stream.h"

namespace qiro::k7m::impl {

/// A stream that is closed, without throwing, when it goes.
class OpenedStream {
 public:
  /// Opens the stream and takes it over. One that cannot be opened is not closed.
  explicit OpenedStream(std::unique_ptr<QiroK7MStream> stream) : stream_(std::move(stream)) {
    stream_->Open();
  }
  OpenedStream(const OpenedStream&) = delete;
  OpenedStream& operator=(const OpenedStream&) = delete;
  ~OpenedStream() { stream_->CloseNoThrow(); }

  QiroK7MStream* Get() const { return stream_.get(); }

 private:
  std::unique_ptr<QiroK7MStream> stream_;
};

}  // namespace qiro::k7m::impl
