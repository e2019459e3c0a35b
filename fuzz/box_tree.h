/// @file box_tree.h
/// Any bytes as a tree of boxes that can be changed and written again. Shares no code with the
/// library.
#ifndef K7M_FUZZ_BOX_TREE_H
#define K7M_FUZZ_BOX_TREE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace k7mfuzz {

using ByteVector = std::vector<uint8_t>;

struct Node {
  bool isBox = true;     // Otherwise bytes where no box header is: `fields` alone.
  bool isLarge = false;  // Size field 1 and a 64-bit size.
  uint32_t type = 0;
  std::optional<uint64_t> toldSize =
      {};                  // What the size field says when that is not the true size.
  ByteVector fields = {};  // What stands before the children.
  std::vector<Node> children = {};
};

/// Writing what was parsed gives the same bytes, whatever they are.
std::vector<Node> ParseBoxes(const uint8_t* bytes, size_t size);
ByteVector WriteBoxes(const std::vector<Node>& nodes);

/// Makes every size field keep the present size, whatever happens inside the box.
void KeepToldSizes(std::vector<Node>& nodes);

}  // namespace k7mfuzz

#endif
