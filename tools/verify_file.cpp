#include "verify_file.h"

#include "failure.h"

namespace qiro::k7m::tool {
namespace {

constexpr unsigned kBlockBits = 14;
constexpr uint64_t kBlockSize = uint64_t{1} << kBlockBits;

}  // namespace

uint64_t VerifiedFile::At(uint64_t offset, unsigned size) {
  uint64_t number = 0;
  const uint64_t inBlock = offset & (kBlockSize - 1);
  if (recent_->number == offset >> kBlockBits && inBlock + size <= recent_->size) {
    const uint8_t* const bytes = recent_->bytes.data() + inBlock;
    for (unsigned i = 0; i < size; ++i) number = number << 8 | bytes[i];
    return number;
  }
  for (unsigned i = 0; i < size; ++i) {
    const uint64_t position = offset + i;
    uint8_t byte = 0;
    if (position >= offset && position < Length()) {
      const Block& block = Fetch(position >> kBlockBits);
      const uint64_t index = position & (kBlockSize - 1);
      if (index < block.size) byte = block.bytes[index];
    }
    number = number << 8 | byte;
  }
  return number;
}

const VerifiedFile::Block& VerifiedFile::Fetch(uint64_t number) {
  if (!recent_->bytes.empty() && recent_->number == number) return *recent_;
  Block* oldest = &blocks_[0];
  for (Block& block : blocks_) {
    if (!block.bytes.empty() && block.number == number) {
      block.lastUse = ++useCount_;
      recent_ = &block;
      return block;
    }
    if (block.lastUse < oldest->lastUse) oldest = &block;
  }
  oldest->bytes.resize(kBlockSize);
  oldest->number = number;
  oldest->lastUse = ++useCount_;
  recent_ = oldest;
  const auto begin = static_cast<int64_t>(number << kBlockBits);
  QiroK7MError result = callBacks_.seek(file_, begin, kQiroK7MSeekFromStart);
  if (result == 0) {
    result = callBacks_.readSome(file_, oldest->bytes.data(), kBlockSize, &oldest->size);
  }
  if (result != 0) throw file_->WhatFailed();
  return *oldest;
}

}  // namespace qiro::k7m::tool
