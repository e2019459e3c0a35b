#include "box_tree.h"

#include <algorithm>
#include <array>

#include "support/bytes.h"

namespace k7mfuzz {
namespace {

using k7mtest::Code;

constexpr int kMaxDepth = 40;
constexpr size_t kSmallHeader = 8;
constexpr size_t kLargeHeader = 16;

/// How many bytes stand before the children of a box; nothing for a leaf.
std::optional<size_t> FieldsBeforeChildren(uint32_t type) {
  static const std::array kPlain = {Code("moov"), Code("trak"), Code("tref"), Code("edts"),
                                    Code("mdia"), Code("minf"), Code("dinf"), Code("stbl"),
                                    Code("mvex"), Code("moof"), Code("traf"), Code("mfra")};
  if (std::find(kPlain.begin(), kPlain.end(), type) != kPlain.end()) return 0;
  if (type == Code("stsd") || type == Code("dref")) return 8;
  return {};
}

uint64_t NumberAt(const uint8_t* bytes, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i) value = value << 8 | bytes[i];
  return value;
}

void AppendNumber(ByteVector& to, uint64_t value, size_t width) {
  for (size_t i = width; i-- > 0;) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

std::vector<Node> Parse(const uint8_t* bytes, size_t size, int depth);

/// Takes one box off the front; gives its true size.
size_t ParseBox(const uint8_t* bytes, size_t size, int depth, Node& node) {
  uint64_t told = NumberAt(bytes, 4);
  node.type = static_cast<uint32_t>(NumberAt(bytes + 4, 4));
  node.isLarge = told == 1 && size >= kLargeHeader;
  if (node.isLarge) told = NumberAt(bytes + 8, 8);
  const size_t header = node.isLarge ? kLargeHeader : kSmallHeader;
  const bool isTrue = told >= header && told <= size;
  const size_t whole = isTrue ? static_cast<size_t>(told) : size;
  if (told != whole) node.toldSize = told;
  const auto before = FieldsBeforeChildren(node.type);
  const size_t body = whole - header;
  const size_t own = before && depth < kMaxDepth ? std::min(*before, body) : body;
  node.fields.assign(bytes + header, bytes + header + own);
  node.children = Parse(bytes + header + own, body - own, depth + 1);
  return whole;
}

std::vector<Node> Parse(const uint8_t* bytes, size_t size, int depth) {
  std::vector<Node> nodes;
  while (size >= kSmallHeader) {
    nodes.emplace_back();
    const size_t taken = ParseBox(bytes, size, depth, nodes.back());
    bytes += taken;
    size -= taken;
  }
  if (size != 0) nodes.push_back({.isBox = false, .fields = ByteVector(bytes, bytes + size)});
  return nodes;
}

void Write(const Node& node, ByteVector& to) {
  const size_t begin = to.size();
  const size_t header = !node.isBox ? 0 : node.isLarge ? kLargeHeader : kSmallHeader;
  to.resize(begin + header);
  to.insert(to.end(), node.fields.begin(), node.fields.end());
  for (const Node& child : node.children) Write(child, to);
  if (!node.isBox) return;
  const uint64_t size = node.toldSize.value_or(to.size() - begin);
  ByteVector head;
  AppendNumber(head, node.isLarge ? 1 : size, 4);
  AppendNumber(head, node.type, 4);
  if (node.isLarge) AppendNumber(head, size, 8);
  std::copy(head.begin(), head.end(), to.begin() + static_cast<std::ptrdiff_t>(begin));
}

}  // namespace

std::vector<Node> ParseBoxes(const uint8_t* bytes, size_t size) { return Parse(bytes, size, 1); }

ByteVector WriteBoxes(const std::vector<Node>& nodes) {
  ByteVector bytes;
  for (const Node& node : nodes) Write(node, bytes);
  return bytes;
}

void KeepToldSizes(std::vector<Node>& nodes) {
  for (Node& node : nodes) {
    ByteVector bytes;
    Write(node, bytes);
    if (!node.toldSize) node.toldSize = bytes.size();
    KeepToldSizes(node.children);
  }
}

}  // namespace k7mfuzz
