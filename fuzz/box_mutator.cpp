// The mutator of the targets whose input is a file: it changes boxes, their sizes and counts, and
// keeps the sizes of everything around them right most of the time.
#include <algorithm>
#include <array>
#include <random>

#include "box_tree.h"
#include "support/bytes.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace k7mfuzz {
namespace {

using k7mtest::Code;
using Random = std::minstd_rand;
using Tree = std::vector<Node>;

struct Place {
  Tree* siblings;
  size_t index;
  Node& At() const { return (*siblings)[index]; }
};

void ListPlaces(Tree& nodes, std::vector<Place>& places) {
  for (size_t i = 0; i < nodes.size(); ++i) {
    places.push_back({&nodes, i});
    ListPlaces(nodes[i].children, places);
  }
}

size_t Pick(Random& random, size_t count) { return count == 0 ? 0 : random() % count; }

Place PickPlace(Tree& tree, Random& random) {
  std::vector<Place> places;
  ListPlaces(tree, places);
  return places[Pick(random, places.size())];
}

uint64_t Extreme(Random& random) {
  static constexpr std::array<uint64_t, 22> kExtremes = {
      0,          1,          2,          3,          7,         8,         16,        100,
      1000,       0x7F,       0xFF,       0x7FFF,     0xFFFF,    100000000, 100000001, 0x7FFFFFFF,
      0x80000000, 0xFFFFFFFE, 0xFFFFFFFF, 1ull << 32, INT64_MAX, UINT64_MAX};
  return kExtremes[Pick(random, kExtremes.size())];
}

uint64_t Nearby(uint64_t value, Random& random) {
  switch (Pick(random, 4)) {
    case 0:
      return value + 1;
    case 1:
      return value - 1;
    case 2:
      return value + Pick(random, 32);
    default:
      return Extreme(random);
  }
}

/// Changes the number of `width` bytes at `offset`, where there is one.
void ChangeNumber(ByteVector& bytes, size_t offset, size_t width, Random& random) {
  if (offset + width > bytes.size()) return;
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i) value = value << 8 | bytes[offset + i];
  value = Nearby(value, random);
  for (size_t i = width; i-- > 0; value >>= 8) bytes[offset + i] = static_cast<uint8_t>(value);
}

// What can happen to a tree
// ------------------------------------------------------------------------

void Duplicate(Tree& tree, Random& random) {
  const Place from = PickPlace(tree, random);
  const Node copy = from.At();
  from.siblings->insert(from.siblings->begin() + static_cast<std::ptrdiff_t>(from.index), copy);
}

void Delete(Tree& tree, Random& random) {
  const Place place = PickPlace(tree, random);
  place.siblings->erase(place.siblings->begin() + static_cast<std::ptrdiff_t>(place.index));
}

void Swap(Tree& tree, Random& random) {
  const Place place = PickPlace(tree, random);
  std::swap(place.At(), (*place.siblings)[Pick(random, place.siblings->size())]);
}

void Move(Tree& tree, Random& random) {
  const Place from = PickPlace(tree, random);
  const Node moved = from.At();
  from.siblings->erase(from.siblings->begin() + static_cast<std::ptrdiff_t>(from.index));
  Tree* target = &tree;
  if (!tree.empty() && Pick(random, 4) != 0) {
    const Place place = PickPlace(tree, random);
    target = place.At().children.empty() ? place.siblings : &place.At().children;
  }
  target->insert(target->begin() + static_cast<std::ptrdiff_t>(Pick(random, target->size() + 1)),
                 moved);
}

void LieAboutSize(Tree& tree, Random& random) {
  Node& node = PickPlace(tree, random).At();
  node.toldSize.reset();
  const uint64_t size = WriteBoxes({node}).size();
  if (Pick(random, 4) == 0) node.isLarge = !node.isLarge;
  node.toldSize = Nearby(size, random);
}

void ChangeCount(Tree& tree, Random& random) {
  Node& node = PickPlace(tree, random).At();
  const size_t offset = node.type == Code("stsz") ? 8 : node.type == Code("afra") ? 9 : 4;
  ChangeNumber(node.fields, offset, 4, random);
}

void ChangeField(Tree& tree, Random& random) {
  Node& node = PickPlace(tree, random).At();
  static constexpr std::array<size_t, 4> kWidths = {1, 2, 4, 8};
  const size_t width = kWidths[Pick(random, kWidths.size())];
  const size_t step = Pick(random, 4) == 0 ? 1 : std::min<size_t>(width, 4);
  ChangeNumber(node.fields, Pick(random, node.fields.size() / step + 1) * step, width, random);
}

void ChangeVersionOrFlags(Tree& tree, Random& random) {
  Node& node = PickPlace(tree, random).At();
  if (node.fields.size() < 4) return;
  node.fields[Pick(random, 4)] ^= static_cast<uint8_t>(1u << Pick(random, 8));
}

void ChangeType(Tree& tree, Random& random) {
  PickPlace(tree, random).At().type = PickPlace(tree, random).At().type;
}

/// Doubles some bytes of a box: another table entry, mostly.
void GrowTable(Tree& tree, Random& random) {
  ByteVector& fields = PickPlace(tree, random).At().fields;
  const size_t size = std::min(fields.size(), 4 * (1 + Pick(random, 8)));
  const ByteVector tail(fields.end() - static_cast<std::ptrdiff_t>(size), fields.end());
  fields.insert(fields.end(), tail.begin(), tail.end());
  if (Pick(random, 2) == 0 && fields.size() > 8) ++fields[7];
}

void CutFields(Tree& tree, Random& random) {
  ByteVector& fields = PickPlace(tree, random).At().fields;
  fields.resize(Pick(random, fields.size() + 1));
}

void MutateFields(Tree& tree, Random& random) {
  ByteVector& fields = PickPlace(tree, random).At().fields;
  const size_t size = fields.size();
  fields.resize(size + 16);
  fields.resize(LLVMFuzzerMutate(fields.data(), size, fields.size()));
}

constexpr std::array<void (*)(Tree&, Random&), 15> kChanges = {
    Duplicate,   Delete,      Swap,        Move,         LieAboutSize,
    ChangeCount, ChangeCount, ChangeField, ChangeField,  ChangeVersionOrFlags,
    ChangeType,  GrowTable,   CutFields,   MutateFields, MutateFields};

size_t Deliver(const ByteVector& bytes, uint8_t* data, size_t maxSize) {
  const size_t size = std::min(bytes.size(), maxSize);
  std::copy_n(bytes.begin(), size, data);
  return size;
}

}  // namespace
}  // namespace k7mfuzz

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned seed) {
  using namespace k7mfuzz;
  Random random(seed);
  Tree tree = ParseBoxes(data, size);
  const size_t kind = Pick(random, 16);
  if (tree.empty() || kind == 0) return LLVMFuzzerMutate(data, size, maxSize);
  if (kind == 1) return Pick(random, size + 1);  // Cut short.
  if (kind < 4) KeepToldSizes(tree);
  const size_t count = 1 + Pick(random, 3);
  for (size_t i = 0; i < count && !tree.empty(); ++i) {
    kChanges[Pick(random, kChanges.size())](tree, random);
  }
  return Deliver(WriteBoxes(tree), data, maxSize);
}

extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* left, size_t leftSize,
                                            const uint8_t* right, size_t rightSize, uint8_t* out,
                                            size_t maxOutSize, unsigned seed) {
  using namespace k7mfuzz;
  Random random(seed);
  Tree tree = ParseBoxes(left, leftSize);
  Tree other = ParseBoxes(right, rightSize);
  if (tree.empty() || other.empty()) return 0;
  const Place place = PickPlace(tree, random);
  const Node& node = PickPlace(other, random).At();
  if (Pick(random, 2) == 0) {
    place.At() = node;
  } else {
    place.siblings->insert(place.siblings->begin() + static_cast<std::ptrdiff_t>(place.index),
                           node);
  }
  return Deliver(WriteBoxes(tree), out, maxOutSize);
}
