/// @file box_place.h
/// Boxes by their headers alone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "file_stream.h"

namespace qiro::k7m::tool {

/// Reads numbers at any place of a file.
class FileNumbers {
 public:
  explicit FileNumbers(FileStream* file) : file_(file), callBacks_(file->CallBacks()) {}

  uint64_t Length() const { return file_->Length(); }
  const std::string& Path() const { return file_->Path(); }
  /// The big-endian number of `size` bytes, at most 8.
  uint64_t At(uint64_t offset, size_t size);

 private:
  FileStream* file_;
  QiroK7MIStreamCallBacks callBacks_;
};

struct BoxPlace {
  std::string type;
  uint64_t offset = 0;
  uint64_t headerSize = 0;
  uint64_t size = 0;
};

/// The box at `offset`; none when what it stands in ends before the box does.
/// @param end  of what it stands in; not before `offset`
std::optional<BoxPlace> BoxAt(FileNumbers* numbers, uint64_t offset, uint64_t end);

}  // namespace qiro::k7m::tool
