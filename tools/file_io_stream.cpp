#include "file_io_stream.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace qiro::k7m::tool {
namespace {

static_assert(sizeof(off_t) == 8, "files over 4 GiB need 64-bit offsets");

constexpr uint64_t kBlockSize = uint64_t{64} * 1024;
// A track is written in eight places (six tables, and two more for its chunks).
constexpr size_t kMaxBlockCount = 64;
constexpr uint64_t kLargestOffset = std::numeric_limits<int64_t>::max();

FileIoStream* Self(void* clientData) { return static_cast<FileIoStream*>(clientData); }

}  // namespace

QiroK7MIOStreamCallBacks FileIoStream::CallBacks() {
  QiroK7MIOStreamCallBacks record;
  record.clientData = this;
  record.open = [](void* self) -> QiroK7MError {
    Self(self)->position_ = 0;
    return kQiroK7MErrorNone;
  };
  record.close = [](void* self) { return Self(self)->FlushAll(); };
  record.readSome = [](void* self, void* buffer, uint64_t byteCount, uint64_t* bytesRead) {
    return Self(self)->Read(static_cast<uint8_t*>(buffer), byteCount, bytesRead);
  };
  record.seek = [](void* self, int64_t offset, QiroK7MSeekPos origin) {
    return Self(self)->Seek(offset, origin);
  };
  record.tell = [](void* self, uint64_t* position) -> QiroK7MError {
    *position = Self(self)->position_;
    return kQiroK7MErrorNone;
  };
  record.write = [](void* self, const void* buffer, uint64_t byteCount, uint64_t* bytesWritten) {
    return Self(self)->Write(static_cast<const uint8_t*>(buffer), byteCount, bytesWritten);
  };
  record.truncate = [](void* self, uint64_t length) { return Self(self)->Truncate(length); };
  return record;
}

QiroK7MError FileIoStream::Read(uint8_t* target, uint64_t byteCount, uint64_t* bytesRead) {
  *bytesRead = 0;
  byteCount = std::min(byteCount, length_ - std::min(length_, position_));
  while (byteCount > 0) {
    const Block* block = Fetch(position_ / kBlockSize);
    if (block == nullptr) return kSystemFailed;
    const uint64_t start = position_ % kBlockSize;
    const uint64_t count = std::min(byteCount, kBlockSize - start);
    std::memcpy(target, block->bytes.get() + start, count);
    target += count;
    byteCount -= count;
    *bytesRead += count;
    position_ += count;
  }
  return kQiroK7MErrorNone;
}

QiroK7MError FileIoStream::Write(const uint8_t* source, uint64_t byteCount,
                                 uint64_t* bytesWritten) {
  *bytesWritten = 0;
  if (byteCount > kLargestOffset - position_) return Fail(EFBIG);
  if (order_ == Order::kKept && position_ != lastWriteEnd_) {
    if (const QiroK7MError error = FlushAll(); error != kQiroK7MErrorNone) return error;
  }
  while (byteCount > 0) {
    const uint64_t start = position_ % kBlockSize;
    uint64_t count = 0;
    if (start == 0) count = CountWholeBlocksToPass(byteCount / kBlockSize) * kBlockSize;
    if (count > 0) {
      if (!WriteFile(source, count, position_)) return kSystemFailed;
    } else {
      Block* block = Fetch(position_ / kBlockSize);
      if (block == nullptr) return kSystemFailed;
      count = std::min(byteCount, kBlockSize - start);
      std::memcpy(block->bytes.get() + start, source, count);
      const bool isClean = block->dirtyBegin == block->dirtyEnd;
      block->dirtyBegin = isClean ? start : std::min(block->dirtyBegin, start);
      block->dirtyEnd = isClean ? start + count : std::max(block->dirtyEnd, start + count);
    }
    source += count;
    byteCount -= count;
    *bytesWritten += count;
    Advance(count);
  }
  lastWriteEnd_ = position_;
  return kQiroK7MErrorNone;
}

void FileIoStream::Advance(uint64_t byteCount) {
  position_ += byteCount;
  length_ = std::max(length_, position_);
}

QiroK7MError FileIoStream::Seek(int64_t offset, QiroK7MSeekPos origin) {
  uint64_t base = 0;
  if (origin == kQiroK7MSeekFromCurrent) base = position_;
  if (origin == kQiroK7MSeekFromEnd) base = length_;
  // Both are far enough from the ends of 64 bits that the sum wraps only for targets below 0.
  const uint64_t target = base + static_cast<uint64_t>(offset);
  if (target > kLargestOffset) return Fail(EINVAL);
  position_ = target;
  return kQiroK7MErrorNone;
}

QiroK7MError FileIoStream::Truncate(uint64_t length) {
  if (length > kLargestOffset) return Fail(EINVAL);
  if (const QiroK7MError error = FlushAll(); error != kQiroK7MErrorNone) return error;
  blocks_.clear();
  if (ftruncate(descriptor_, static_cast<off_t>(length)) != 0) return Fail(errno);
  length_ = length;
  fileLength_ = length;
  return kQiroK7MErrorNone;
}

QiroK7MError FileIoStream::FlushAll() {
  for (Block& block : blocks_) {
    if (!Flush(&block)) return kSystemFailed;
  }
  return kQiroK7MErrorNone;
}

uint64_t FileIoStream::CountWholeBlocksToPass(uint64_t limit) {
  uint64_t count = 0;
  while (count < limit && Find(position_ / kBlockSize + count) == nullptr) ++count;
  return count;
}

FileIoStream::Block* FileIoStream::Find(uint64_t number) {
  for (Block& block : blocks_) {
    if (block.number == number) return &block;
  }
  return nullptr;
}

FileIoStream::Block* FileIoStream::Fetch(uint64_t number) {
  Block* block = Find(number);
  if (block == nullptr) {
    block = TakeOldest();
    if (block == nullptr || !Load(block, number)) return nullptr;
  }
  block->lastUse = ++useCount_;
  return block;
}

FileIoStream::Block* FileIoStream::TakeOldest() {
  if (blocks_.size() < kMaxBlockCount) {
    Block block;
    block.bytes = std::make_unique<uint8_t[]>(kBlockSize);
    blocks_.push_back(std::move(block));
    return &blocks_.back();
  }
  Block* oldest = &blocks_.front();
  for (Block& block : blocks_) {
    if (block.lastUse < oldest->lastUse) oldest = &block;
  }
  return Flush(oldest) ? oldest : nullptr;
}

bool FileIoStream::Load(Block* block, uint64_t number) {
  const uint64_t begin = number * kBlockSize;
  uint64_t size = 0;
  while (size < kBlockSize && begin + size < fileLength_) {
    ++systemCallCount_;
    const ssize_t count = pread(descriptor_, block->bytes.get() + size, kBlockSize - size,
                                static_cast<off_t>(begin + size));
    if (count == 0) break;
    if (count > 0) {
      size += static_cast<uint64_t>(count);
    } else if (errno != EINTR) {
      Fail(errno);
      // What the block holds belongs nowhere.
      blocks_.erase(blocks_.begin() + (block - blocks_.data()));
      return false;
    }
  }
  std::memset(block->bytes.get() + size, 0, kBlockSize - size);
  block->number = number;
  return true;
}

bool FileIoStream::Flush(Block* block) {
  const uint64_t size = block->dirtyEnd - block->dirtyBegin;
  const uint64_t position = block->number * kBlockSize + block->dirtyBegin;
  if (size > 0 && !WriteFile(block->bytes.get() + block->dirtyBegin, size, position)) return false;
  block->dirtyBegin = 0;
  block->dirtyEnd = 0;
  return true;
}

bool FileIoStream::WriteFile(const uint8_t* source, uint64_t byteCount, uint64_t position) {
  while (byteCount > 0) {
    ++systemCallCount_;
    const ssize_t count = pwrite(descriptor_, source, byteCount, static_cast<off_t>(position));
    if (count >= 0) {
      source += count;
      byteCount -= static_cast<uint64_t>(count);
      position += static_cast<uint64_t>(count);
      fileLength_ = std::max(fileLength_, position);
    } else if (errno != EINTR) {
      Fail(errno);
      return false;
    }
  }
  return true;
}

QiroK7MError FileIoStream::Fail(int errorNumber) {
  errorNumber_ = errorNumber;
  return kSystemFailed;
}

}  // namespace qiro::k7m::tool
