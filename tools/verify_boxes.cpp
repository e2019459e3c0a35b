#include "verify_boxes.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>
#include <vector>

#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint64_t kHeaderSize = 8;
constexpr uint32_t kDeepestLevel = 32;
// Enough for some ten thousand tracks.
constexpr uint64_t kMostBoxes = 250'000;
// The end of an extended type that stands for the code in front of it.
constexpr uint64_t kOrdinaryUuidMiddle = 0x00110010;
constexpr uint64_t kOrdinaryUuidEnd = 0x800000AA00389B71;

constexpr Rule kTooSmall = {Severity::kError, "box-size-too-small",
                            "readers stop here: nothing behind it in its container is found"};
constexpr Rule kPastParent = {Severity::kError, "box-past-parent",
                              "readers cut the box off or refuse the file"};
constexpr Rule kPastEnd = {Severity::kError, "box-past-end",
                           "the file is cut off: readers refuse it"};
constexpr Rule kMediaPastEnd = {Severity::kWarning, "media-past-end",
                                "the file is cut off: what lay behind its end is lost"};
constexpr Rule kStrayBytes = {Severity::kWarning, "stray-bytes",
                              "readers skip them, strict ones refuse the file"};
constexpr Rule kTrailingBytes = {
    Severity::kWarning, "trailing-bytes",
    "readers take them for a box of an unknown type; nothing can be appended behind them"};
constexpr Rule kNesting = {Severity::kError, "box-nesting", "readers refuse the file"};

constexpr std::array kContainers = {FourCc("dinf"), FourCc("dref"), FourCc("edts"), FourCc("mdia"),
                                    FourCc("mfra"), FourCc("minf"), FourCc("moof"), FourCc("moov"),
                                    FourCc("mvex"), FourCc("stbl"), FourCc("traf"), FourCc("trak"),
                                    FourCc("tref")};

bool IsPrintable(uint32_t type) {
  for (int shift = 0; shift < 32; shift += 8) {
    const uint32_t character = type >> shift & 0xFF;
    if ((character < 0x20 || character > 0x7E) && character != 0xA9) return false;
  }
  return true;
}

// Fields in front of the children.
uint64_t FieldsOf(uint32_t type) { return type == FourCc("dref") ? 8 : 0; }

void NumberTwins(VerifiedBox* first) {
  std::map<uint32_t, std::pair<uint32_t, VerifiedBox*>> types;  // Count and last one.
  for (VerifiedBox* box = first; box != nullptr; box = box->next) {
    auto& [count, last] = types[box->type];
    box->number = ++count;
    box->hasTwins = count > 1;
    if (count == 2) last->hasTwins = true;
    last = box;
  }
}

uint32_t LevelOf(const VerifiedBox* box) {
  uint32_t level = 0;
  for (; box != nullptr; box = box->parent) ++level;
  return level;
}

}  // namespace

std::string CodeText(uint32_t type) { return "'" + FourCharacters(type) + "'"; }

std::string PathOf(const VerifiedBox* box) {
  if (box == nullptr) return "file";
  std::string path;
  for (; box != nullptr; box = box->parent) {
    std::string step = FourCharacters(box->type);
    if (box->hasTwins) step += "[" + std::to_string(box->number) + "]";
    if (!path.empty()) step += "/";
    path.insert(0, step);
  }
  return path;
}

const VerifiedBox* ChildOf(const VerifiedBox* box, uint32_t type) {
  if (box == nullptr) return nullptr;
  const VerifiedBox* child = box->firstChild;
  while (child != nullptr && child->type != type) child = child->next;
  return child;
}

uint64_t CountChildren(const VerifiedBox& box, uint32_t type) {
  uint64_t count = 0;
  for (const VerifiedBox* child = box.firstChild; child != nullptr; child = child->next) {
    if (child->type == type) ++count;
  }
  return count;
}

bool IsContainer(uint32_t type) {
  return std::find(kContainers.begin(), kContainers.end(), type) != kContainers.end();
}

VerifiedBox* BoxTree::ReadTopLevel() {
  VerifiedBox* first = nullptr;
  ReadLevel(nullptr, 0, file_.Length(), &first);
  return first;
}

void BoxTree::ReadInside(VerifiedBox* top) {
  if (!IsContainer(top->type)) return;
  std::vector<VerifiedBox*> open = {top};
  while (!open.empty()) {
    VerifiedBox* const box = open.back();
    open.pop_back();
    const uint64_t begin = std::min(box->Payload() + FieldsOf(box->type), box->End());
    if (begin + kHeaderSize <= box->End() && LevelOf(box) >= kDeepestLevel) {
      findings_.Add(kNesting, box, box->offset, [] {
        return "boxes inside boxes, more than " + std::to_string(kDeepestLevel) + " levels deep";
      });
      continue;
    }
    ReadLevel(box, begin, box->End(), &box->firstChild);
    for (VerifiedBox* child = box->firstChild; child != nullptr; child = child->next) {
      if (IsContainer(child->type)) open.push_back(child);
    }
  }
}

void BoxTree::ReadLevel(VerifiedBox* parent, uint64_t begin, uint64_t end, VerifiedBox** first) {
  VerifiedBox** link = first;
  uint64_t position = begin;
  while (position < end) {
    if (end - position < kHeaderSize) {
      findings_.Add(kStrayBytes, parent, position,
                    [&] { return CountText(end - position, "byte") + " that hold no box"; });
      break;
    }
    VerifiedBox* const box = ReadBox(parent, position, end);
    if (box == nullptr) break;
    *link = box;
    link = &box->next;
    position = box->End();
  }
  NumberTwins(*first);
}

// Null when nothing behind it can be found.
VerifiedBox* BoxTree::ReadBox(VerifiedBox* parent, uint64_t offset, uint64_t end) {
  VerifiedBox box;
  box.offset = offset;
  box.parent = parent;
  if (parent != nullptr && ++insideCount_ > kMostBoxes) {
    findings_.Add(kTooManyBoxes, parent, offset, [] {
      return "more than " + std::to_string(kMostBoxes) + " boxes; the others are passed over";
    });
    return nullptr;
  }
  uint64_t size = file_.U32At(offset);
  box.type = file_.U32At(offset + 4);
  if (parent == nullptr && !IsPrintable(box.type)) {
    findings_.Add(kTrailingBytes, nullptr, offset, [&] {
      return CountText(end - offset, "byte") + " at the end of the file that are no box";
    });
    return nullptr;
  }
  if (size == 1) {
    box.headerSize += 8;
    size = file_.At(offset + 8, 8);
  } else if (size == 0) {
    size = end - offset;
  }
  if (box.type == FourCc("uuid")) {
    const uint64_t uuid = offset + box.headerSize;
    if (file_.At(uuid + 4, 4) == kOrdinaryUuidMiddle && file_.At(uuid + 8, 8) == kOrdinaryUuidEnd) {
      box.type = file_.U32At(uuid);
    }
    box.headerSize += 16;
  }
  if (!FitsHeader(box, size, end)) return nullptr;
  box.size = std::min(size, end - offset);
  return &boxes_.emplace_back(box);
}

bool BoxTree::FitsHeader(const VerifiedBox& box, uint64_t size, uint64_t end) {
  const uint64_t room = end - box.offset;
  const auto sizes = [&] {
    return CodeText(box.type) + " of " + std::to_string(size) + " bytes where " +
           std::to_string(room) + " are left";
  };
  if (size > room) {
    const bool isMedia = box.type == FourCc("mdat");
    const Rule& rule = box.parent != nullptr ? kPastParent : (isMedia ? kMediaPastEnd : kPastEnd);
    findings_.Add(rule, box.parent, box.offset, sizes);
  }
  if (size >= box.headerSize && room >= box.headerSize) return true;
  if (size < box.headerSize) {
    findings_.Add(kTooSmall, box.parent, box.offset, [&] {
      return CodeText(box.type) + " of " + std::to_string(size) + " bytes, its header alone has " +
             std::to_string(box.headerSize);
    });
  }
  return false;
}

}  // namespace qiro::k7m::tool
