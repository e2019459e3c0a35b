#include <algorithm>

#include "text_format.h"
#include "verify_index.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kNoSample = {Severity::kError, "afra-sample",
                            "players that start there read garbage"};
constexpr Rule kNoKey = {Severity::kWarning, "afra-key",
                         "the picture is broken after starting there until the next key sample"};
constexpr Rule kNoFragment = {Severity::kError, "afra-target",
                              "a request for that fragment fails or gets other bytes"};
constexpr Rule kSegmentReference = {Severity::kError, "sidx-target",
                                    "players that seek by the index read garbage"};

constexpr uint32_t kHasLongIds = 0x80;
constexpr uint32_t kHasLongOffsets = 0x40;
constexpr uint32_t kHasGlobals = 0x20;
constexpr uint32_t kHeadSize = 13;
// Of one fragment. A fragment with more samples is not compared.
constexpr uint64_t kMostStarts = uint64_t{1} << 22;

}  // namespace

AccessEntries::AccessEntries(Verification* all)
    : all_(*all), startsLeft_(all->file.Length() + kMostStarts) {
  for (const VerifiedBox* box = all->top; box != nullptr; box = box->next) {
    if (box->type == FourCc("afra")) afraOffsets_.push_back(box->offset);
  }
}

void AccessEntries::Begin(const VerifiedBox& afra) {
  entries_ = {};
  if (!HoldsFields(&afra, kHeadSize, &all_.findings)) return;
  const uint64_t flags = all_.file.At(afra.Payload() + 4, 1);
  const uint32_t offsetWidth = (flags & kHasLongOffsets) != 0 ? 8 : 4;
  entries_ = OpenTable(&all_.file, &afra, 9, kHeadSize, 8 + offsetWidth, &all_.findings);
  if ((flags & kHasGlobals) == 0) return;
  CheckGlobals(afra, entries_.Place(entries_.count), (flags & kHasLongIds) != 0);
}

void AccessEntries::CheckGlobals(const VerifiedBox& afra, uint64_t place, bool hasLongIds) {
  if (!HoldsFields(&afra, place + 4 - afra.Payload(), &all_.findings)) return;
  const uint32_t offsetWidth = entries_.stride - 8;
  const uint32_t idWidth = hasLongIds ? 4 : 2;
  const auto countPlace = static_cast<uint32_t>(place - afra.Payload());
  const VerifiedTable globals = OpenTable(&all_.file, &afra, countPlace, countPlace + 4,
                                          8 + 2 * idWidth + 2 * offsetWidth, &all_.findings);
  for (uint64_t i = 0; i < globals.count; ++i) {
    const uint64_t offsets = globals.Place(i) + 8 + uint64_t{2} * idWidth;
    CheckGlobal({&afra, globals.Place(i), i + 1, all_.file.At(offsets, offsetWidth),
                 all_.file.At(offsets + offsetWidth, offsetWidth),
                 offsetWidth == 8 ? UINT64_MAX : UINT32_MAX});
  }
}

void AccessEntries::CheckGlobal(const GlobalEntry& entry) {
  if (entry.target == entry.notThere) return;
  const auto found = std::lower_bound(afraOffsets_.begin(), afraOffsets_.end(), entry.target);
  const auto name = [&] {
    return "global entry " + std::to_string(entry.number) + " points at byte " +
           std::to_string(entry.target);
  };
  if (found == afraOffsets_.end() || *found != entry.target) {
    all_.findings.Add(kNoFragment, entry.afra, entry.place,
                      [&] { return name() + ", where no 'afra' begins"; });
    return;
  }
  const uint64_t end = found + 1 == afraOffsets_.end() ? all_.file.Length() : *(found + 1);
  if (entry.inside == entry.notThere || entry.inside < end - entry.target) return;
  all_.findings.Add(kNoSample, entry.afra, entry.place, [&] {
    return name() + " and " + std::to_string(entry.inside) +
           " bytes further, behind the fragment there";
  });
}

void AccessEntries::Compare(const std::vector<VerifiedRun>& runs) {
  const VerifiedTable entries = entries_;
  entries_ = {};
  if (entries.count == 0 || all_.movie.moov == nullptr || !GatherStarts(runs)) return;
  const uint32_t offsetWidth = entries.stride - 8;
  for (uint64_t i = 0; i < entries.count; ++i) {
    const uint64_t offset = all_.file.At(entries.Place(i) + 8, offsetWidth);
    const uint64_t target = entries.box->offset + offset;
    auto start =
        std::lower_bound(starts_.begin(), starts_.end(), target,
                         [](const SampleStart& a, uint64_t wanted) { return a.offset < wanted; });
    const auto name = [&] {
      return "entry " + std::to_string(i + 1) + " points at byte " + std::to_string(target);
    };
    if (start == starts_.end() || start->offset != target) {
      all_.findings.Add(kNoSample, entries.box, entries.Place(i),
                        [&] { return name() + ", where no sample of the fragment begins"; });
    } else if (!start->isKey) {
      all_.findings.Add(kNoKey, entries.box, entries.Place(i),
                        [&] { return name() + ", where no key sample begins"; });
    }
  }
}

// False when there are too many to be looked at.
bool AccessEntries::GatherStarts(const std::vector<VerifiedRun>& runs) {
  starts_.clear();
  uint64_t count = 0;
  for (const VerifiedRun& run : runs) count += run.count;
  if (count > kMostStarts || count > startsLeft_) return false;
  startsLeft_ -= count;
  for (const VerifiedRun& run : runs) {
    uint64_t offset = run.begin;
    for (uint64_t i = 0; i < run.count; ++i) {
      starts_.push_back({offset, IsKey(run, i, &all_.file)});
      offset += SizeOf(run, i, &all_.file);
    }
  }
  // Where several begin at the same byte, a key sample comes first.
  std::sort(starts_.begin(), starts_.end(), [](const SampleStart& a, const SampleStart& b) {
    return a.offset != b.offset ? a.offset < b.offset : a.isKey > b.isKey;
  });
  return true;
}

void CheckSegmentIndex(const VerifiedBox& sidx, const std::vector<uint64_t>& topLevelOffsets,
                       Verification* all) {
  const bool isLong = all->file.At(sidx.Payload(), 1) != 0;
  const uint32_t head = isLong ? 28 : 20;
  if (!HoldsFields(&sidx, head + 4, &all->findings)) return;
  // The number of entries has 16 bits; the 16 bits in front of it are 0.
  const VerifiedTable entries = OpenTable(&all->file, &sidx, head, head + 4, 12, &all->findings);
  uint64_t target = sidx.End() + all->file.At(sidx.Payload() + (isLong ? 20 : 16), isLong ? 8 : 4);
  for (uint64_t i = 0; i < entries.count; ++i) {
    if (!std::binary_search(topLevelOffsets.begin(), topLevelOffsets.end(), target)) {
      all->findings.Add(kSegmentReference, &sidx, entries.Place(i), [&] {
        return "entry " + std::to_string(i + 1) + " points at byte " + std::to_string(target) +
               ", where no box begins";
      });
    }
    target += all->file.U32At(entries.Place(i)) & INT32_MAX;
  }
}

}  // namespace qiro::k7m::tool
