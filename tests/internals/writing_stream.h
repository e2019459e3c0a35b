/// @file writing_stream.h
/// A stream to write boxes to, opened.
#ifndef K7M_TESTS_INTERNALS_WRITING_STREAM_H
#define K7M_TESTS_INTERNALS_WRITING_STREAM_H

#include "base/client_streams.h"
#include "support/memory_stream.h"

namespace k7mtest {

class WritingStream {
 public:
  WritingStream() : stream_(memory_.ReadingAndWriting()) { stream_.Open(); }

  MemoryStream& Memory() { return memory_; }
  qiro::k7m::impl::QiroK7MStream* Get() { return &stream_; }
  Bytes Content() const { return memory_.Content(); }

 private:
  MemoryStream memory_;
  qiro::k7m::impl::QiroK7MIOStream stream_;
};

}  // namespace k7mtest

#endif
