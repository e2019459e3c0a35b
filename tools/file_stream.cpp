#include "file_stream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "local_file.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint64_t kBufferCapacity = uint64_t{64} * 1024;
// Filling starts a little before the wanted byte, so that short steps back stay inside the buffer.
constexpr uint64_t kFillAlignment = 4096;
constexpr uint64_t kLargestOffset = std::numeric_limits<int64_t>::max();

}  // namespace

FileStream::FileStream(const std::string& path) : FileStream(OpenLocalFile(path)) {}

FileStream::FileStream(std::shared_ptr<InputSource> source)
    : source_(std::move(source)), buffer_(kBufferCapacity) {
  if (!source_->Measure(&length_)) throw FileFailure(Path(), source_->Problem());
}

QiroK7MIStreamCallBacks FileStream::CallBacks() {
  QiroK7MIStreamCallBacks record{};
  record.size = sizeof record;
  record.clientData = this;
  record.open = [](void* self) -> QiroK7MError {
    static_cast<FileStream*>(self)->position_ = 0;
    return kQiroK7MErrorNone;
  };
  record.close = [](void*) -> QiroK7MError { return kQiroK7MErrorNone; };
  record.readSome = [](void* self, void* buffer, uint64_t byteCount, uint64_t* bytesRead) {
    return static_cast<FileStream*>(self)->ReadSome(static_cast<uint8_t*>(buffer), byteCount,
                                                    bytesRead);
  };
  record.seek = [](void* self, int64_t offset, QiroK7MSeekPos origin) {
    return static_cast<FileStream*>(self)->Seek(offset, origin);
  };
  record.tell = [](void* self, uint64_t* position) -> QiroK7MError {
    *position = static_cast<FileStream*>(self)->position_;
    return kQiroK7MErrorNone;
  };
  return record;
}

QiroK7MError FileStream::ReadSome(uint8_t* target, uint64_t byteCount, uint64_t* bytesRead) {
  *bytesRead = 0;
  while (byteCount > 0) {
    uint64_t count = 0;
    if (position_ >= bufferBegin_ && position_ - bufferBegin_ < bufferSize_) {
      const uint64_t start = position_ - bufferBegin_;
      count = std::min(byteCount, bufferSize_ - start);
      std::memcpy(target, buffer_.data() + start, count);
    } else if (byteCount >= kBufferCapacity) {
      if (!ReadSource(target, byteCount, position_, &count)) return kSystemFailed;
    } else {
      if (const QiroK7MError error = FillBuffer(); error != kQiroK7MErrorNone) return error;
      if (position_ - bufferBegin_ < bufferSize_) continue;
    }
    if (count == 0) break;  // The file ends here.
    target += count;
    byteCount -= count;
    position_ += count;
    *bytesRead += count;
  }
  return kQiroK7MErrorNone;
}

QiroK7MError FileStream::FillBuffer() {
  bufferBegin_ = position_ - position_ % kFillAlignment;
  bufferSize_ = 0;
  if (!ReadSource(buffer_.data(), kBufferCapacity, bufferBegin_, &bufferSize_))
    return kSystemFailed;
  return kQiroK7MErrorNone;
}

bool FileStream::ReadSource(uint8_t* target, uint64_t byteCount, uint64_t position,
                            uint64_t* bytesRead) {
  if (source_->Read(target, byteCount, position, bytesRead)) return true;
  Fail(source_->Problem());
  return false;
}

QiroK7MError FileStream::Seek(int64_t offset, QiroK7MSeekPos origin) {
  uint64_t base = 0;
  if (origin == kQiroK7MSeekFromCurrent) base = position_;
  if (origin == kQiroK7MSeekFromEnd) {
    // Measured anew: the file may be growing.
    if (!source_->Measure(&base)) return Fail(source_->Problem());
  }
  // Both are far enough from the ends of 64 bits that the sum wraps only for targets below 0.
  const uint64_t target = base + static_cast<uint64_t>(offset);
  if (target > kLargestOffset) return Fail(SystemMessage(EINVAL));
  position_ = target;
  return kQiroK7MErrorNone;
}

QiroK7MError FileStream::Fail(const std::string& problem) {
  problem_ = problem;
  return kSystemFailed;
}

}  // namespace qiro::k7m::tool
