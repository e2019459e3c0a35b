#include "fragment_list.h"

#include <optional>

#include "box_place.h"
#include "failure.h"

namespace qiro::k7m::tool {
namespace {

// Of an 'afra', behind its header: version, flags, one byte of layout flags; then these.
constexpr uint64_t kTimeScalePosition = 5;
constexpr uint64_t kEntryCountPosition = 9;
constexpr uint64_t kFirstTimePosition = 13;
constexpr uint64_t kTimeSize = 8;

/// A time in another scale, rounded down.
uint64_t Converted(uint64_t time, uint32_t from, uint32_t to) {
  return from == to || from == 0 ? time : time / from * to + time % from * to / from;
}

/// Gathers fragments from the boxes as they come.
class FragmentGatherer {
 public:
  explicit FragmentGatherer(FileNumbers* numbers) : numbers_(numbers) {}

  bool CanTake(const BoxPlace& box) const {
    return IsBetweenFragments(box) || CanStandHere(box.type);
  }
  void Take(const BoxPlace& box) {
    if (IsBetweenFragments(box)) return;
    if (!CanStandHere(box.type)) Refuse(box);
    if (box.type == "afra") Begin(box);
    lastType_ = box.type;
    if (box.type == "mdat") {
      lastType_.clear();
      fragments_.push_back(current_);
    }
  }
  bool IsInside() const { return !lastType_.empty(); }
  const std::vector<FragmentPlace>& Fragments() const { return fragments_; }
  uint32_t TimeScale() const { return timeScale_; }
  [[noreturn]] void Refuse(const BoxPlace& box) const {
    const std::string place =
        lastType_.empty() ? "before any 'afra' of its own" : "behind an '" + lastType_ + "'";
    throw FileFailure(numbers_->Path(), "'" + box.type + "' at byte " + std::to_string(box.offset) +
                                            " stands " + place + ", where no fragment can have it");
  }

 private:
  bool IsBetweenFragments(const BoxPlace& box) const {
    const bool isOfAFragment =
        box.type == "afra" || box.type == "abst" || box.type == "moof" || box.type == "mdat";
    return !isOfAFragment && !IsInside();
  }
  bool CanStandHere(const std::string& type) const {
    if (type == "afra") return !IsInside();
    if (type == "abst") return lastType_ == "afra";
    if (type == "moof") return lastType_ == "afra" || lastType_ == "abst";
    return type == "mdat" && lastType_ == "moof";
  }
  void Begin(const BoxPlace& afra) {
    current_.offset = afra.offset;
    const uint64_t fields = afra.offset + afra.headerSize;
    const uint64_t fieldsSize = afra.size - afra.headerSize;
    if (fieldsSize < kFirstTimePosition) return;  // Not even a time scale.
    const auto scale = static_cast<uint32_t>(numbers_->At(fields + kTimeScalePosition, 4));
    if (timeScale_ == 0) timeScale_ = scale;
    const uint64_t entryCount = numbers_->At(fields + kEntryCountPosition, 4);
    if (entryCount == 0 || fieldsSize < kFirstTimePosition + kTimeSize) return;
    current_.time = Converted(numbers_->At(fields + kFirstTimePosition, 8), scale, timeScale_);
  }

  FileNumbers* numbers_;
  std::vector<FragmentPlace> fragments_;
  FragmentPlace current_;
  uint32_t timeScale_ = 0;
  std::string lastType_;  // Of the fragment that has begun; empty between fragments.
};

}  // namespace

FragmentList ListFragments(FileStream* file) {
  FileNumbers numbers(file);
  FragmentGatherer gatherer(&numbers);
  uint64_t offset = 0;
  while (const auto box = BoxAt(&numbers, offset, numbers.Length())) {
    gatherer.Take(*box);
    offset += box->size;
  }
  return {gatherer.TimeScale(), gatherer.Fragments(), gatherer.IsInside()};
}

void RefuseOtherFragments(FileStream* file) {
  FileNumbers numbers(file);
  FragmentGatherer gatherer(&numbers);
  std::optional<BoxPlace> misplaced;
  bool isBehindMovie = false;
  bool hasMoof = false;  // Without one it is no fragmented file, whatever it is.
  uint64_t offset = 0;
  while (const auto box = BoxAt(&numbers, offset, numbers.Length())) {
    hasMoof = hasMoof || box->type == "moof";
    if (isBehindMovie && !misplaced) {
      if (gatherer.CanTake(*box)) {
        gatherer.Take(*box);
      } else {
        misplaced = box;
      }
    }
    if (!gatherer.Fragments().empty()) return;
    if (misplaced && hasMoof) gatherer.Refuse(*misplaced);
    isBehindMovie = isBehindMovie || box->type == "moov";
    offset += box->size;
  }
}

}  // namespace qiro::k7m::tool
