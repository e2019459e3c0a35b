#include "fragment_count.h"

#include <optional>

#include "file_stream.h"

namespace qiro::k7m::tool {
namespace {

// The big-endian numbers at the top of a file's boxes.
class HeaderReader {
 public:
  explicit HeaderReader(const FileStream& file)
      : file_(file.Source()), stream_(file_.CallBacks()) {}

  // None where the file ends before that.
  std::optional<uint64_t> Number(uint64_t offset, uint64_t byteCount) {
    uint8_t bytes[8];
    if (byteCount > Length() || offset > Length() - byteCount) return std::nullopt;
    Check(stream_.seek(stream_.clientData, static_cast<int64_t>(offset), kQiroK7MSeekFromStart));
    for (uint64_t done = 0; done < byteCount;) {
      uint64_t count = 0;
      Check(stream_.readSome(stream_.clientData, bytes + done, byteCount - done, &count));
      if (count == 0) return std::nullopt;
      done += count;
    }
    uint64_t value = 0;
    for (uint64_t i = 0; i < byteCount; ++i) value = value << 8 | bytes[i];
    return value;
  }
  uint64_t Length() const { return file_.Length(); }

 private:
  void Check(QiroK7MError code) const {
    if (code != kQiroK7MErrorNone) throw file_.WhatFailed();
  }

  FileStream file_;
  QiroK7MIStreamCallBacks stream_;
};

}  // namespace

uint64_t CountFragments(const FileStream& file) {
  constexpr uint64_t kFragment = 0x6D6F6F66;  // 'moof'
  HeaderReader reader(file);
  uint64_t count = 0;
  for (uint64_t offset = 0;;) {
    const std::optional<uint64_t> header = reader.Number(offset, 8);
    if (!header) return count;
    const uint64_t left = reader.Length() - offset;
    uint64_t headerSize = 8;
    uint64_t size = *header >> 32;
    if (size == 0) size = left;
    if (size == 1) {
      headerSize = 16;
      size = reader.Number(offset + 8, 8).value_or(0);
    }
    if (size < headerSize || size > left) return count;
    if ((*header & 0xFFFFFFFF) == kFragment) ++count;
    offset += size;
  }
}

}  // namespace qiro::k7m::tool
