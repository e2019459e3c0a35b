/// @file lav_memory.h
/// A file in memory as libavformat's input.
#ifndef K7M_BENCH_LAV_MEMORY_H
#define K7M_BENCH_LAV_MEMORY_H

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "measure.h"

namespace k7mbench {

class LavMemory {
 public:
  /// `bytes` must outlive this object.
  explicit LavMemory(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}

  /// The context lives until the end of the program.
  AVFormatContext* Open() {
    constexpr int kBuffer = 1 << 16;
    AVFormatContext* context = avformat_alloc_context();
    context->pb = avio_alloc_context(static_cast<unsigned char*>(av_malloc(kBuffer)), kBuffer, 0,
                                     this, &Read, nullptr, &Seek);
    Require(avformat_open_input(&context, nullptr, nullptr, nullptr) == 0, "cannot open");
    return context;
  }

 private:
  static int Read(void* opaque, uint8_t* target, int length) {
    auto& self = *static_cast<LavMemory*>(opaque);
    const uint64_t count =
        std::min<uint64_t>(static_cast<uint64_t>(length), self.bytes_.size() - self.position_);
    if (count == 0) return AVERROR_EOF;
    std::memcpy(target, self.bytes_.data() + self.position_, count);
    self.position_ += count;
    return static_cast<int>(count);
  }
  static int64_t Seek(void* opaque, int64_t offset, int origin) {
    auto& self = *static_cast<LavMemory*>(opaque);
    const auto length = static_cast<int64_t>(self.bytes_.size());
    if (origin == AVSEEK_SIZE) return length;
    if (origin == SEEK_CUR) offset += static_cast<int64_t>(self.position_);
    if (origin == SEEK_END) offset += length;
    if (offset < 0 || offset > length) return -1;
    self.position_ = static_cast<uint64_t>(offset);
    return offset;
  }

  const std::vector<uint8_t>& bytes_;
  uint64_t position_ = 0;
};

}  // namespace k7mbench

#endif
