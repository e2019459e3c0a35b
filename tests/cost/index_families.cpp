#include <functional>

#include "families.h"
#include "family_parts.h"

namespace k7mtest {
namespace {

constexpr uint64_t kFar = uint64_t{1} << 63;

/// Indexes of `size` entries: each is one whole 'afra', so that serving by it begins.
class Indexes {
 public:
  explicit Indexes(uint32_t size) : size_(size), offsets_(GoodRecording().offsets) {}

  /// `change(entry, i)` makes the entries bad.
  void Local(const char* name, const std::function<void(Afra::Local&, uint32_t)>& change,
             Afra afra = {}) {
    for (uint32_t i = 0; i < size_; ++i) {
      afra.locals.push_back({.time = 20 * i, .offset = OffsetOf(i)});
      change(afra.locals.back(), i);
    }
    files.push_back({std::string("local, ") + name, AfraBox(afra)});
  }
  void Global(const char* name, const std::function<void(Afra::Global&, uint32_t)>& change,
              Afra afra = {}) {
    for (uint32_t i = 0; i < size_; ++i) {
      afra.globals.push_back({.time = 20 * i, .fragment = i + 1, .afraOffset = OffsetOf(i)});
      change(afra.globals.back(), i);
    }
    files.push_back({std::string("global, ") + name, AfraBox(afra)});
  }

  std::vector<BadFile> files;

 private:
  uint64_t OffsetOf(uint32_t i) const { return offsets_[i % offsets_.size()]; }

  uint32_t size_;
  std::vector<uint64_t> offsets_;
};

void AddLocal(Indexes& indexes, uint32_t size) {
  using Entry = Afra::Local;
  const auto asItIs = [](Entry&, uint32_t) {};
  indexes.Local("good", asItIs);
  indexes.Local("good and short", asItIs, {.hasLongIds = false, .hasLongOffsets = false});
  indexes.Local("reserved bits", asItIs, {.reservedBits = 0x1F});
  indexes.Local("half of them counted", asItIs, {.localCount = size / 2});
  indexes.Local("twice as many counted", asItIs, {.localCount = size * 2});
  indexes.Local("the largest count", asItIs, {.localCount = UINT32_MAX});
  indexes.Local("none counted", asItIs, {.localCount = 0});
  indexes.Local("none counted, a global part", asItIs, {.hasGlobalPart = true, .localCount = 0});
  indexes.Local("no time", asItIs, {.timeScale = 0});
  indexes.Local("not available", [](Entry& entry, uint32_t) { entry.offset = UINT64_MAX; });
  indexes.Local("not available in 32 bits",
                [](Entry& entry, uint32_t) { entry.offset = UINT32_MAX; },
                {.hasLongOffsets = false});
  indexes.Local("at the begin of the file", [](Entry& entry, uint32_t) { entry.offset = 0; });
  indexes.Local("in the middle", [](Entry& entry, uint32_t i) { entry.offset += 1 + i % 200; });
  indexes.Local("behind the file", [](Entry& entry, uint32_t i) { entry.offset = 100000 + i; });
  indexes.Local("far behind", [](Entry& entry, uint32_t i) { entry.offset = kFar - i; });
  indexes.Local("wrapping", [](Entry& entry, uint32_t i) { entry.offset = UINT64_MAX - 1 - i; });
  indexes.Local("backwards", [size](Entry& entry, uint32_t i) { entry.time = size - i; });
}

void AddGlobal(Indexes& indexes, uint32_t size) {
  using Entry = Afra::Global;
  const auto asItIs = [](Entry&, uint32_t) {};
  indexes.Global("good", asItIs);
  indexes.Global("good and short", asItIs, {.hasLongIds = false, .hasLongOffsets = false});
  indexes.Global("none counted", asItIs, {.globalCount = 0});
  indexes.Global("twice as many counted", asItIs, {.globalCount = size * 2});
  indexes.Global("the largest count", asItIs, {.globalCount = UINT32_MAX});
  indexes.Global("local ones that are not there", asItIs, {.localCount = size});
  indexes.Global("all of one number", [](Entry& entry, uint32_t) { entry.fragment = 1; });
  indexes.Global("of no number", [](Entry& entry, uint32_t) { entry.fragment = 0; });
  indexes.Global("backwards", [size](Entry& entry, uint32_t i) { entry.fragment = size - i; });
  indexes.Global("with holes", [](Entry& entry, uint32_t i) { entry.fragment = 3 * i; });
  indexes.Global("the last numbers", [](Entry& entry, uint32_t i) { entry.fragment = 0 - i; });
  indexes.Global("of no segment", [](Entry& entry, uint32_t) { entry.segment = 0; });
  indexes.Global("of many segments", [](Entry& entry, uint32_t i) { entry.segment = i; });
  indexes.Global("not available", [](Entry& entry, uint32_t) { entry.afraOffset = UINT64_MAX; });
  indexes.Global("at no fragment", [](Entry& entry, uint32_t i) { entry.afraOffset += 1 + i; });
  indexes.Global("far behind", [](Entry& entry, uint32_t i) { entry.afraOffset = kFar - i; });
}

}  // namespace

std::vector<BadFile> BadIndexes(uint32_t size) {
  Indexes indexes(size);
  AddLocal(indexes, size);
  AddGlobal(indexes, size);
  std::vector<BadFile> files = std::move(indexes.files);
  const Bytes fields = Bytes().U32(0).U8(0xFF).U32(1000);
  files.push_back({"no entries", AfraBox({})});
  files.push_back({"ones behind the fields", Box("afra", fields, Bytes().Fill(size * 16, 0xFF))});
  files.push_back({"zeros", Box("afra", Bytes().Fill(size * 16))});
  files.push_back({"in the 64-bit size form", LargeBox("afra", fields, Bytes().Fill(size * 16))});
  files.push_back({"to the end", LyingBox("afra", 0, fields + Bytes().Fill(size * 16))});
  // These are refused.
  files.push_back({"cut", Cut(files[0].bytes, files[0].bytes.Size() - 1)});
  files.push_back({"with a byte too much", files[0].bytes + Bytes{0}});
  files.push_back({"without fields", Box("afra", Bytes().Fill(12))});
  return files;
}

}  // namespace k7mtest
