#include "file_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "failure.h"

namespace qiro::k7m::tool {
namespace {

static_assert(sizeof(off_t) == 8, "files over 4 GiB need 64-bit offsets");

constexpr uint64_t kBufferCapacity = uint64_t{64} * 1024;
// Filling starts a little before the wanted byte, so that short steps back stay inside the buffer.
constexpr uint64_t kFillAlignment = 4096;
constexpr uint64_t kLargestOffset = std::numeric_limits<int64_t>::max();

}  // namespace

FileStream::FileStream(const std::string& path) : path_(path), buffer_(kBufferCapacity) {
  file_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file_ < 0) throw SystemFailure(path, errno);
  struct stat status {};
  int problem = 0;
  if (fstat(file_, &status) != 0) {
    problem = errno;
  } else if (S_ISDIR(status.st_mode)) {
    problem = EISDIR;
  } else {
    const off_t end = lseek(file_, 0, SEEK_END);
    if (end < 0) problem = errno;
    length_ = static_cast<uint64_t>(end);
  }
  if (problem != 0) {
    close(file_);
    throw SystemFailure(path, problem);
  }
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

FileStream::~FileStream() { close(file_); }

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

bool FileStream::IsSameFile(const struct stat& other) const {
  return other.st_dev == device_ && other.st_ino == inode_;
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
      if (!ReadFile(target, byteCount, position_, &count)) return kSystemFailed;
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
  if (!ReadFile(buffer_.data(), kBufferCapacity, bufferBegin_, &bufferSize_)) return kSystemFailed;
  return kQiroK7MErrorNone;
}

bool FileStream::ReadFile(uint8_t* target, uint64_t byteCount, uint64_t position,
                          uint64_t* bytesRead) {
  *bytesRead = 0;
  while (*bytesRead < byteCount && position + *bytesRead <= kLargestOffset) {
    const ssize_t count = pread(file_, target + *bytesRead, byteCount - *bytesRead,
                                static_cast<off_t>(position + *bytesRead));
    if (count == 0) break;
    if (count > 0) {
      *bytesRead += static_cast<uint64_t>(count);
    } else if (errno != EINTR) {
      Fail(errno);
      return false;
    }
  }
  return true;
}

QiroK7MError FileStream::Seek(int64_t offset, QiroK7MSeekPos origin) {
  uint64_t base = 0;
  if (origin == kQiroK7MSeekFromCurrent) base = position_;
  if (origin == kQiroK7MSeekFromEnd) {
    const off_t end = lseek(file_, 0, SEEK_END);  // Measured anew: the file may be growing.
    if (end < 0) return Fail(errno);
    base = static_cast<uint64_t>(end);
  }
  // Both are far enough from the ends of 64 bits that the sum wraps only for targets below 0.
  const uint64_t target = base + static_cast<uint64_t>(offset);
  if (target > kLargestOffset) return Fail(EINVAL);
  position_ = target;
  return kQiroK7MErrorNone;
}

QiroK7MError FileStream::Fail(int errorNumber) {
  errorNumber_ = errorNumber;
  return kSystemFailed;
}

}  // namespace qiro::k7m::tool
