#include <algorithm>
#include <tuple>

#include "text_format.h"
#include "verify_index.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kNoFragment = {Severity::kError, "tfra-moof",
                              "players that seek by the table read garbage"};
constexpr Rule kNoSample = {Severity::kError, "tfra-sample",
                            "players that seek by the table do not find the sample"};
constexpr Rule kNoKey = {Severity::kWarning, "tfra-key",
                         "the picture is broken after seeking until the next key sample"};
constexpr Rule kSize = {Severity::kWarning, "mfro-size",
                        "players that look from the end of the file do not find the table"};

}  // namespace

void SeekEntries::Add(const VerifiedBox& mfra) {
  CheckSize(mfra);
  for (const VerifiedBox* box = mfra.firstChild; box != nullptr; box = box->next) {
    if (box->type == FourCc("tfra")) AddTable(*box);
  }
}

void SeekEntries::CheckSize(const VerifiedBox& mfra) {
  const VerifiedBox* const mfro = ChildOf(&mfra, FourCc("mfro"));
  if (mfro == nullptr || !HoldsFields(mfro, 8, &all_.findings)) return;
  const uint32_t size = all_.file.U32At(mfro->Payload() + 4);
  if (size == mfra.size) return;
  all_.findings.Add(kSize, mfro, mfro->offset, [&] {
    return "it says " + std::to_string(size) + " bytes, 'mfra' has " + std::to_string(mfra.size);
  });
}

void SeekEntries::AddTable(const VerifiedBox& tfra) {
  if (!HoldsFields(&tfra, 16, &all_.findings)) return;
  const uint32_t trackId = all_.file.U32At(tfra.Payload() + 4);
  const uint32_t widths = all_.file.U32At(tfra.Payload() + 8);
  const unsigned trafWidth = (widths >> 4 & 3) + 1;
  const unsigned trunWidth = (widths >> 2 & 3) + 1;
  const unsigned sampleWidth = (widths & 3) + 1;
  const unsigned timeWidth = all_.file.At(tfra.Payload(), 1) != 0 ? 8 : 4;
  const VerifiedTable table =
      OpenTable(&all_.file, &tfra, 12, 16, 2 * timeWidth + trafWidth + trunWidth + sampleWidth,
                &all_.findings);
  for (uint64_t i = 0; i < table.count; ++i) {
    Entry entry{.trackId = trackId, .place = table.Place(i), .tfra = &tfra};
    uint64_t place = entry.place + timeWidth;
    entry.moofOffset = all_.file.At(place, timeWidth);
    place += timeWidth;
    entry.traf = static_cast<uint32_t>(all_.file.At(place, trafWidth));
    place += trafWidth;
    entry.trun = static_cast<uint32_t>(all_.file.At(place, trunWidth));
    entry.sample = static_cast<uint32_t>(all_.file.At(place + trunWidth, sampleWidth));
    entries_.push_back(entry);
  }
}

void SeekEntries::Sort() {
  std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
    return std::tie(a.moofOffset, a.traf, a.trun, a.sample) <
           std::tie(b.moofOffset, b.traf, b.trun, b.sample);
  });
}

void SeekEntries::Compare(const VerifiedBox& moof, const std::vector<VerifiedRun>& runs) {
  for (; next_ < entries_.size() && entries_[next_].moofOffset <= moof.offset; ++next_) {
    if (entries_[next_].moofOffset == moof.offset) {
      CompareOne(entries_[next_], runs);
    } else {
      PointsAtNothing(entries_[next_]);
    }
  }
}

void SeekEntries::Finish() {
  for (; next_ < entries_.size(); ++next_) PointsAtNothing(entries_[next_]);
}

void SeekEntries::PointsAtNothing(const Entry& entry) {
  all_.findings.Add(kNoFragment, entry.tfra, entry.place, [&] {
    return "an entry points at byte " + std::to_string(entry.moofOffset) +
           ", where no 'moof' begins";
  });
}

void SeekEntries::CompareOne(const Entry& entry, const std::vector<VerifiedRun>& runs) {
  const auto name = [&] {
    return "sample " + std::to_string(entry.sample) + " of run " + std::to_string(entry.trun) +
           " of track fragment " + std::to_string(entry.traf) + " behind byte " +
           std::to_string(entry.moofOffset);
  };
  const auto run = std::lower_bound(
      runs.begin(), runs.end(), entry, [](const VerifiedRun& a, const Entry& wanted) {
        return std::tie(a.traf, a.trun) < std::tie(wanted.traf, wanted.trun);
      });
  const bool isThere = run != runs.end() && run->traf == entry.traf && run->trun == entry.trun &&
                       entry.sample >= 1 && entry.sample <= run->count;
  // Written tables may hold no more than the low byte of the track ID.
  if (!isThere || (run->trackId != entry.trackId && (run->trackId & 0xFF) != entry.trackId)) {
    all_.findings.Add(kNoSample, entry.tfra, entry.place, [&] {
      return "track ID " + std::to_string(entry.trackId) + " has no " + name();
    });
  } else if (!IsKey(*run, entry.sample - 1, &all_.file)) {
    all_.findings.Add(kNoKey, entry.tfra, entry.place,
                      [&] { return name() + " is no key sample"; });
  }
}

}  // namespace qiro::k7m::tool
