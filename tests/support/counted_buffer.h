/// @file counted_buffer.h
/// A data buffer that knows how often it was given back.
#ifndef K7M_TESTS_SUPPORT_COUNTED_BUFFER_H
#define K7M_TESTS_SUPPORT_COUNTED_BUFFER_H

#include <utility>

#include "bytes.h"
#include "k7m/types.h"

namespace k7mtest {

class CountedBuffer {
 public:
  explicit CountedBuffer(Bytes bytes) : bytes_(std::move(bytes)) {
    record_.length = static_cast<uint32_t>(bytes_.Size());
    record_.data = bytes_.Data();
    record_.clientData = this;
    record_.release = &CountedBuffer::Release;
  }
  CountedBuffer(const CountedBuffer&) = delete;
  CountedBuffer& operator=(const CountedBuffer&) = delete;

  /// The record to hand to the library, which may change it.
  QiroK7MDataBuffer* Record() { return &record_; }
  int Releases() const { return releases_; }
  /// Whether every release brought the data pointer that was handed out.
  bool DataWasRight() const { return dataWasRight_; }

 private:
  static void Release(void* clientData, void* data) {
    auto& self = *static_cast<CountedBuffer*>(clientData);
    ++self.releases_;
    if (data != self.bytes_.Data()) self.dataWasRight_ = false;
  }

  Bytes bytes_;
  QiroK7MDataBuffer record_{};
  int releases_ = 0;
  bool dataWasRight_ = true;
};

}  // namespace k7mtest

#endif
