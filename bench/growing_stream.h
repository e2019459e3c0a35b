/// @file growing_stream.h
/// Memory behind the writing callbacks, with as little effort of its own as possible.
#ifndef K7M_BENCH_GROWING_STREAM_H
#define K7M_BENCH_GROWING_STREAM_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "k7m/k7m.h"

namespace k7mbench {

class GrowingStream {
 public:
  /// The memory is there and touched before anything is measured.
  explicit GrowingStream(uint64_t capacity) : content_(capacity, 1) {}

  /// The file is empty again; its memory stays.
  void Clear() { position_ = length_ = 0; }

  QiroK7MIOStreamCallBacks CallBacks() {
    QiroK7MIOStreamCallBacks record;
    record.clientData = this;
    record.open = &Open;
    record.close = &Open;
    record.readSome = &ReadSome;
    record.seek = &Seek;
    record.tell = &Tell;
    record.write = &Write;
    record.truncate = &Truncate;
    return record;
  }

 private:
  static GrowingStream& Self(void* clientData) { return *static_cast<GrowingStream*>(clientData); }
  static QiroK7MError Open(void*) { return 0; }
  static QiroK7MError ReadSome(void* clientData, void* buffer, uint64_t length,
                               uint64_t* delivered) {
    GrowingStream& self = Self(clientData);
    *delivered = std::min(length, self.length_ - std::min(self.position_, self.length_));
    std::memcpy(buffer, self.content_.data() + self.position_, *delivered);
    self.position_ += *delivered;
    return 0;
  }
  static QiroK7MError Seek(void* clientData, int64_t offset, QiroK7MSeekPos origin) {
    GrowingStream& self = Self(clientData);
    const uint64_t base = origin == kQiroK7MSeekFromStart     ? 0
                          : origin == kQiroK7MSeekFromCurrent ? self.position_
                                                              : self.length_;
    self.position_ = base + static_cast<uint64_t>(offset);
    return 0;
  }
  static QiroK7MError Tell(void* clientData, uint64_t* position) {
    *position = Self(clientData).position_;
    return 0;
  }
  static QiroK7MError Write(void* clientData, const void* buffer, uint64_t length,
                            uint64_t* written) {
    GrowingStream& self = Self(clientData);
    *written = self.position_ + length <= self.content_.size() ? length : 0;
    std::memcpy(self.content_.data() + self.position_, buffer, *written);
    self.position_ += *written;
    self.length_ = std::max(self.length_, self.position_);
    return 0;
  }
  static QiroK7MError Truncate(void* clientData, uint64_t length) {
    Self(clientData).length_ = length;
    return 0;
  }

  std::vector<uint8_t> content_;
  uint64_t position_ = 0;
  uint64_t length_ = 0;
};

}  // namespace k7mbench

#endif
