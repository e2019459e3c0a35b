// All boxes of the top level but the movie box: fragments, and the tables that point at them.
#include "text_format.h"
#include "verify_index.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kOrder = {Severity::kWarning, "fragment-order",
                         "neither an index nor a server of fragments can be made of the file"};

/// The order of boxes in a file whose fragments begin with 'afra': 'afra', perhaps 'abst', 'moof',
/// 'mdat', and nothing else in between.
class FragmentOrder {
 public:
  explicit FragmentOrder(Findings* findings) : findings_(*findings) {}

  void Take(const VerifiedBox& box) {
    const bool isPart = box.type == FourCc("afra") || box.type == FourCc("abst") ||
                        box.type == FourCc("moof") || box.type == FourCc("mdat");
    hasBegun_ = hasBegun_ || box.type == FourCc("afra");
    if (!hasBegun_ || (last_ == nullptr && !isPart)) return;
    if (!CanStandHere(box.type)) {
      findings_.Add(kOrder, &box, box.offset, [&] {
        return last_ == nullptr ? std::string("it stands before any 'afra' of its own")
                                : "it stands behind " + CodeText(last_->type);
      });
    }
    last_ = isPart && box.type != FourCc("mdat") ? &box : nullptr;
  }
  void Finish() {
    if (last_ == nullptr) return;
    findings_.Add(kOrder, last_, last_->offset,
                  [] { return std::string("the file ends before the fragment does"); });
  }

 private:
  bool CanStandHere(uint32_t type) const {
    const uint32_t last = last_ == nullptr ? 0 : last_->type;
    if (type == FourCc("afra")) return last == 0;
    if (type == FourCc("abst")) return last == FourCc("afra");
    if (type == FourCc("moof")) return last == FourCc("afra") || last == FourCc("abst");
    return type == FourCc("mdat") && last == FourCc("moof");
  }

  Findings& findings_;
  const VerifiedBox* last_ = nullptr;  // Of the fragment that has begun; null between fragments.
  bool hasBegun_ = false;
};

std::vector<uint64_t> TopLevelOffsets(const VerifiedBox* first) {
  std::vector<uint64_t> offsets;
  for (const VerifiedBox* box = first; box != nullptr; box = box->next) {
    offsets.push_back(box->offset);
  }
  return offsets;
}

}  // namespace

void CheckFragments(Verification* all) {
  BoxTree tables(&all->file, &all->findings);
  SeekEntries seekEntries(all);
  for (VerifiedBox* box = all->top; box != nullptr; box = box->next) {
    if (box->type != FourCc("mfra")) continue;
    tables.ReadInside(box);
    CheckStructure(*box, &all->findings);
    seekEntries.Add(*box);
  }
  seekEntries.Sort();
  const std::vector<uint64_t> offsets = TopLevelOffsets(all->top);
  AccessEntries accessEntries(all);
  FragmentReading reading(all);
  FragmentOrder order(&all->findings);
  for (VerifiedBox* box = all->top; box != nullptr; box = box->next) {
    order.Take(*box);
    if (box->type == FourCc("afra")) accessEntries.Begin(*box);
    if (box->type == FourCc("sidx")) CheckSegmentIndex(*box, offsets, all);
    if (box->type != FourCc("moof")) continue;
    // A fragment is forgotten once it has been looked at.
    BoxTree inside(&all->file, &all->findings);
    inside.ReadInside(box);
    CheckStructure(*box, &all->findings);
    const std::vector<VerifiedRun> runs = reading.Read(*box);
    seekEntries.Compare(*box, runs);
    accessEntries.Compare(runs);
    box->firstChild = nullptr;
  }
  order.Finish();
  reading.Finish();
  seekEntries.Finish();
}

}  // namespace qiro::k7m::tool
