#include "media_durations.h"

#include <functional>

#include "box_place.h"

namespace qiro::k7m::tool {
namespace {

using Visit = std::function<void(const BoxPlace&)>;

/// Visits the boxes of one type between two places.
void ForEachBox(FileNumbers* numbers, uint64_t begin, uint64_t end, const std::string& type,
                const Visit& visit) {
  while (const auto box = BoxAt(numbers, begin, end)) {
    if (box->type == type) visit(*box);
    begin += box->size;
  }
}

void ForEachChild(FileNumbers* numbers, const BoxPlace& parent, const std::string& type,
                  const Visit& visit) {
  ForEachBox(numbers, parent.offset + parent.headerSize, parent.offset + parent.size, type, visit);
}

uint64_t DurationIn(FileNumbers* numbers, const BoxPlace& mdhd) {
  const uint64_t fields = mdhd.offset + mdhd.headerSize;
  // Behind version and flags, two dates and the time scale.
  constexpr uint64_t kPosition = 12 + 4;
  constexpr uint64_t kLongPosition = 20 + 4;
  if (numbers->At(fields, 1) == 1) return numbers->At(fields + kLongPosition, 8);
  return numbers->At(fields + kPosition, 4);
}

}  // namespace

std::vector<uint64_t> ListMediaDurations(FileStream* file) {
  FileNumbers numbers(file);
  std::vector<uint64_t> durations;
  ForEachBox(&numbers, 0, numbers.Length(), "moov", [&](const BoxPlace& moov) {
    ForEachChild(&numbers, moov, "trak", [&](const BoxPlace& trak) {
      durations.push_back(0);
      ForEachChild(&numbers, trak, "mdia", [&](const BoxPlace& mdia) {
        ForEachChild(&numbers, mdia, "mdhd",
                     [&](const BoxPlace& mdhd) { durations.back() = DurationIn(&numbers, mdhd); });
      });
    });
  });
  return durations;
}

}  // namespace qiro::k7m::tool
