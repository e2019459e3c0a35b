/// @file opened_stream.h
/// A reading stream over bytes, opened, with its warnings recorded.
#ifndef K7M_TESTS_INTERNALS_OPENED_STREAM_H
#define K7M_TESTS_INTERNALS_OPENED_STREAM_H

#include "base/client_streams.h"
#include "support/memory_stream.h"
#include "support/warning_recorder.h"

namespace k7mtest {

class OpenedStream {
 public:
  explicit OpenedStream(const Bytes& content)
      : memory_(content),
        warningRecord_(warnings_.Record()),
        stream_(memory_.Reading(), qiro::k7m::impl::WarningHandler(&warningRecord_)) {
    stream_.Open();
  }

  MemoryStream& Memory() { return memory_; }
  WarningRecorder& Recorder() { return warnings_; }
  std::vector<QiroK7MError> Warnings() const { return warnings_.Seen(); }
  qiro::k7m::impl::QiroK7MStream& Stream() { return stream_; }

 private:
  MemoryStream memory_;
  WarningRecorder warnings_;
  QiroK7MWarningHandlerCallBacks warningRecord_;
  qiro::k7m::impl::QiroK7MIStream stream_;
};

}  // namespace k7mtest

#endif
