/// @file flat_stream.h
/// A file in memory behind the reading callbacks, with as little effort of its own as possible.
#ifndef K7M_BENCH_FLAT_STREAM_H
#define K7M_BENCH_FLAT_STREAM_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "k7m/k7m.h"

namespace k7mbench {

class FlatStream {
 public:
  /// `content` must outlive the stream.
  explicit FlatStream(const std::vector<uint8_t>& content) : content_(content) {}

  QiroK7MIStreamCallBacks Reading() {
    QiroK7MIStreamCallBacks record;
    record.clientData = this;
    record.open = &Open;
    record.close = &Open;
    record.readSome = &ReadSome;
    record.seek = &Seek;
    record.tell = &Tell;
    return record;
  }

 private:
  static FlatStream& Self(void* clientData) { return *static_cast<FlatStream*>(clientData); }
  static QiroK7MError Open(void*) { return 0; }
  static QiroK7MError ReadSome(void* clientData, void* buffer, uint64_t length,
                               uint64_t* delivered) {
    FlatStream& self = Self(clientData);
    *delivered = std::min<uint64_t>(length, self.content_.size() - self.position_);
    std::memcpy(buffer, self.content_.data() + self.position_, *delivered);
    self.position_ += *delivered;
    return 0;
  }
  static QiroK7MError Seek(void* clientData, int64_t offset, QiroK7MSeekPos origin) {
    FlatStream& self = Self(clientData);
    const uint64_t length = self.content_.size();
    const uint64_t base = origin == kQiroK7MSeekFromStart     ? 0
                          : origin == kQiroK7MSeekFromCurrent ? self.position_
                                                              : length;
    self.position_ = std::min(base + static_cast<uint64_t>(offset), length);
    return 0;
  }
  static QiroK7MError Tell(void* clientData, uint64_t* position) {
    *position = Self(clientData).position_;
    return 0;
  }

  const std::vector<uint8_t>& content_;
  uint64_t position_ = 0;
};

}  // namespace k7mbench

#endif
