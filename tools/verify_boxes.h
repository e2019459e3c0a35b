/// @file verify_boxes.h
/// The boxes of a file by their headers, with their places in the tree.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "verify_file.h"
#include "verify_findings.h"

namespace qiro::k7m::tool {

/// The number of a four-character code.
constexpr uint32_t FourCc(const char (&text)[5]) {
  uint32_t code = 0;
  for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<uint8_t>(text[i]);
  return code;
}

struct VerifiedBox {
  uint32_t type = 0;
  uint32_t number = 1;     ///< Among those of its type in the same box, from 1.
  bool hasTwins = false;   ///< There are several of its type.
  uint8_t headerSize = 8;  ///< With a 64-bit size and an extended type.
  uint64_t offset = 0;
  uint64_t size = 0;  ///< Cut at the end of what the box stands in.
  const VerifiedBox* parent = nullptr;
  VerifiedBox* firstChild = nullptr;
  VerifiedBox* next = nullptr;  ///< In the same box.

  uint64_t Payload() const { return offset + headerSize; }
  uint64_t PayloadSize() const { return size - headerSize; }
  uint64_t End() const { return offset + size; }
};

/// Broken by a box of the top level with more boxes inside than memory should be given to.
inline constexpr Rule kTooManyBoxes = {
    Severity::kError, "box-count",
    "readers run out of memory or time; the samples have not been read"};

/// "moov/trak[2]/mdia/minf/stbl/stsz"; "file" for null.
std::string PathOf(const VerifiedBox* box);
/// "'stsz'", with other characters than printable ones as \xNN.
std::string CodeText(uint32_t type);
/// The first child of a type; null when there is none, or no box.
const VerifiedBox* ChildOf(const VerifiedBox* box, uint32_t type);
uint64_t CountChildren(const VerifiedBox& box, uint32_t type);
/// Whether a file's boxes of this type are looked into.
bool IsContainer(uint32_t type);

/// Reads headers and keeps the boxes. A header that makes no sense ends the level that it stands
/// on.
class BoxTree {
 public:
  BoxTree(VerifiedFile* file, Findings* findings) : file_(*file), findings_(*findings) {}
  BoxTree(const BoxTree&) = delete;
  BoxTree& operator=(const BoxTree&) = delete;

  /// The boxes of the top level, without their children.
  VerifiedBox* ReadTopLevel();
  /// Adds all boxes inside a box of the top level, up to a limit. They belong to this tree.
  void ReadInside(VerifiedBox* top);

 private:
  void ReadLevel(VerifiedBox* parent, uint64_t begin, uint64_t end, VerifiedBox** first);
  VerifiedBox* ReadBox(VerifiedBox* parent, uint64_t offset, uint64_t end);
  bool FitsHeader(const VerifiedBox& box, uint64_t size, uint64_t end);

  VerifiedFile& file_;
  Findings& findings_;
  std::deque<VerifiedBox> boxes_;  // Their addresses stay.
  uint64_t insideCount_ = 0;       // Of the boxes below the top level.
};

}  // namespace qiro::k7m::tool
