/// @file box_finder.h
/// Finds boxes in the bytes of a file by their path. Shares no code with the library.
#ifndef K7M_TESTS_SUPPORT_BOX_FINDER_H
#define K7M_TESTS_SUPPORT_BOX_FINDER_H

#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"

namespace k7mtest {

/// Where a box lies; size 0 when there is none.
struct BoxPlace {
  size_t offset = 0;
  size_t size = 0;
  size_t headerSize = 0;
};

/// The box that a path leads to: "moov/trak#2/mdia" is the 'mdia' in the second 'trak' of the
/// 'moov'. Every box on the way must be a plain container.
BoxPlace PlaceOf(const Bytes& file, std::string_view path);
/// The bytes of that box, header included; empty when there is none.
Bytes FindBox(const Bytes& file, std::string_view path);
/// The codes of the boxes in the box that the path leads to; of the top-level ones for an empty
/// path.
std::vector<std::string> CodesIn(const Bytes& file, std::string_view path = {});
/// The number of `width` bytes at `offset` in the box that the path leads to.
uint64_t NumberIn(const Bytes& file, std::string_view path, size_t offset, size_t width = 4);

/// A box as a writer reserves it: zeros behind its content make it `size` bytes long, and its size
/// field says so.
inline Bytes PaddedTo(size_t size, Bytes box) {
  box.Fill(size - box.Size());
  return box.Patch(0, size);
}

}  // namespace k7mtest

#endif
