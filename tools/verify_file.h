/// @file verify_file.h
/// Numbers anywhere in a file that is read in many places at once.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "file_stream.h"

namespace qiro::k7m::tool {

/// A small cache over a file: every table that is being walked finds its block again.
class VerifiedFile {
 public:
  explicit VerifiedFile(FileStream* file) : file_(file), callBacks_(file->CallBacks()) {}
  VerifiedFile(const VerifiedFile&) = delete;
  VerifiedFile& operator=(const VerifiedFile&) = delete;

  uint64_t Length() const { return file_->Length(); }
  /// The big-endian number of `size` bytes, at most 8. Bytes behind the end of the file are 0.
  uint64_t At(uint64_t offset, unsigned size);
  uint32_t U32At(uint64_t offset) { return static_cast<uint32_t>(At(offset, 4)); }

 private:
  struct Block {
    uint64_t number = 0;
    uint64_t lastUse = 0;
    uint64_t size = 0;
    std::vector<uint8_t> bytes;
  };

  const Block& Fetch(uint64_t number);

  FileStream* file_;
  QiroK7MIStreamCallBacks callBacks_;
  std::array<Block, 16> blocks_;
  Block* recent_ = &blocks_[0];
  uint64_t useCount_ = 0;
};

}  // namespace qiro::k7m::tool
