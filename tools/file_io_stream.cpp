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
// Blocks that are done stay for a while: what a fragment left open is filled in when it ends.
constexpr ptrdiff_t kMaxDoneCount = 16;
// Uses of blocks that are not done are numbered from here on.
constexpr uint64_t kFirstUse = uint64_t{1} << 62;
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
    Block* block = Fetch(position_ / kBlockSize);
    if (block == nullptr) return kSystemFailed;
    const uint64_t start = position_ % kBlockSize;
    const uint64_t count = std::min(byteCount, kBlockSize - start);
    if (!block->known.Holds({start, start + count}) && !Complete(block)) return kSystemFailed;
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
      if (!WriteInto(block, source, {start, start + count})) return kSystemFailed;
    }
    source += count;
    byteCount -= count;
    *bytesWritten += count;
    Advance(count);
  }
  lastWriteEnd_ = position_;
  return kQiroK7MErrorNone;
}

bool FileIoStream::WriteInto(Block* block, const uint8_t* source, const Range& place) {
  if (!block->known.IsEmpty() && !block->known.Touches(place) && !Complete(block)) return false;
  std::memcpy(block->bytes.get() + place.begin, source, place.end - place.begin);
  block->known.Add(place);
  block->dirty.Add(place);
  if (place.end < kBlockSize) return true;
  // Most often the block is done. Written now and used again soon, it is in the processor's cache.
  block->lastUse = ++doneCount_;
  return Flush(block);
}

void FileIoStream::Range::Add(const Range& other) {
  const bool wasEmpty = IsEmpty();
  begin = wasEmpty ? other.begin : std::min(begin, other.begin);
  end = wasEmpty ? other.end : std::max(end, other.end);
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
  if (lastFound_ < blocks_.size() && blocks_[lastFound_].number == number) {
    return &blocks_[lastFound_];
  }
  for (size_t i = 0; i < blocks_.size(); ++i) {
    if (blocks_[i].number == number) {
      lastFound_ = i;
      return &blocks_[i];
    }
  }
  return nullptr;
}

FileIoStream::Block* FileIoStream::Fetch(uint64_t number) {
  Block* block = Find(number);
  if (block == nullptr) {
    block = TakeOldest();
    if (block == nullptr) return nullptr;
    block->number = number;
    block->known = {};
  }
  block->lastUse = kFirstUse + ++useCount_;
  return block;
}

FileIoStream::Block* FileIoStream::TakeOldest() {
  const auto isDone = [](const Block& block) { return block.lastUse < kFirstUse; };
  const bool takesDone = std::count_if(blocks_.begin(), blocks_.end(), isDone) >= kMaxDoneCount;
  if (!takesDone && blocks_.size() < kMaxBlockCount) {
    Block block;
    block.bytes.reset(new uint8_t[kBlockSize]);
    blocks_.push_back(std::move(block));
    return &blocks_.back();
  }
  Block* oldest = nullptr;
  for (Block& block : blocks_) {
    if (isDone(block) != takesDone) continue;
    if (oldest == nullptr || block.lastUse < oldest->lastUse) oldest = &block;
  }
  return Flush(oldest) ? oldest : nullptr;
}

bool FileIoStream::Complete(Block* block) {
  const uint64_t begin = block->number * kBlockSize;
  uint8_t* const bytes = block->bytes.get();
  const Range known = block->known.IsEmpty() ? Range{kBlockSize, kBlockSize} : block->known;
  if (!ReadFile(bytes, known.begin, begin) ||
      !ReadFile(bytes + known.end, kBlockSize - known.end, begin + known.end)) {
    return false;
  }
  block->known = {0, kBlockSize};
  return true;
}

bool FileIoStream::Flush(Block* block) {
  const Range& dirty = block->dirty;
  const uint64_t position = block->number * kBlockSize + dirty.begin;
  if (!WriteFile(block->bytes.get() + dirty.begin, dirty.end - dirty.begin, position)) return false;
  block->dirty = {};
  return true;
}

// Behind the end of the file there are zeros.
bool FileIoStream::ReadFile(uint8_t* target, uint64_t byteCount, uint64_t position) {
  while (byteCount > 0 && position < fileLength_) {
    ++systemCallCount_;
    const ssize_t count = pread(descriptor_, target, byteCount, static_cast<off_t>(position));
    if (count == 0) break;
    if (count > 0) {
      target += count;
      position += static_cast<uint64_t>(count);
      byteCount -= static_cast<uint64_t>(count);
    } else if (errno != EINTR) {
      Fail(errno);
      return false;
    }
  }
  std::memset(target, 0, byteCount);
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
