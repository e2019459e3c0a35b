#include "file_stream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "local_file.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint64_t kBlockSize = uint64_t{64} * 1024;
constexpr size_t kMaxBlockCount = 16;
constexpr uint64_t kLargestOffset = std::numeric_limits<int64_t>::max();

}  // namespace

FileStream::FileStream(const std::string& path) : FileStream(OpenLocalFile(path)) {}

FileStream::FileStream(std::shared_ptr<InputSource> source) : source_(std::move(source)) {
  if (!source_->Measure(&length_)) throw FileFailure(Path(), source_->Problem());
  knownEnd_ = length_;
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
    if (const Block* block = Find(); block != nullptr) {
      const uint64_t start = position_ - block->begin;
      count = std::min(byteCount, block->size - start);
      std::memcpy(target, block->bytes.get() + start, count);
    } else if (byteCount >= kBlockSize) {
      if (!ReadSource(target, byteCount, position_, &count)) return kSystemFailed;
    } else {
      if (const QiroK7MError error = Load(); error != kQiroK7MErrorNone) return error;
      if (Find() != nullptr) continue;
    }
    if (count == 0) break;  // The file ends here.
    target += count;
    byteCount -= count;
    position_ += count;
    *bytesRead += count;
  }
  return kQiroK7MErrorNone;
}

FileStream::Block* FileStream::Find() {
  const auto holds = [this](const Block& block) {
    return position_ >= block.begin && position_ - block.begin < block.size;
  };
  if (lastFound_ >= blocks_.size() || !holds(blocks_[lastFound_])) {
    const auto found = std::find_if(blocks_.begin(), blocks_.end(), holds);
    if (found == blocks_.end()) return nullptr;
    lastFound_ = static_cast<size_t>(found - blocks_.begin());
    found->lastUse = ++useCount_;
  }
  return &blocks_[lastFound_];
}

QiroK7MError FileStream::Load() {
  const uint64_t begin = position_ - position_ % kBlockSize;
  Block* block = BlockFor(begin);
  block->begin = begin;
  block->size = 0;
  block->lastUse = ++useCount_;
  if (!ReadSource(block->bytes.get(), kBlockSize, begin, &block->size)) return kSystemFailed;
  return kQiroK7MErrorNone;
}

FileStream::Block* FileStream::BlockFor(uint64_t begin) {
  const auto same = std::find_if(blocks_.begin(), blocks_.end(),
                                 [begin](const Block& block) { return block.begin == begin; });
  if (same != blocks_.end()) return &*same;
  if (blocks_.size() < kMaxBlockCount) {
    Block block;
    block.bytes.reset(new uint8_t[kBlockSize]);
    blocks_.push_back(std::move(block));
    return &blocks_.back();
  }
  return &*std::min_element(blocks_.begin(), blocks_.end(),
                            [](const Block& a, const Block& b) { return a.lastUse < b.lastUse; });
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
    if (base != knownEnd_) blocks_.clear();  // What was there may have changed as well.
    knownEnd_ = base;
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
