#include <algorithm>
#include <tuple>

#include "text_format.h"
#include "verify_index.h"
#include "verify_tables.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kNoFragment = {Severity::kError, "tfra-moof",
                              "players that seek by the table read garbage"};
constexpr Rule kNoSample = {Severity::kError, "tfra-sample",
                            "players that seek by the table do not find the sample"};
constexpr Rule kNumbers = {Severity::kInfo, "tfra-numbers",
                           "players that go by track and time find it, those that count do not"};
constexpr Rule kNoKey = {Severity::kWarning, "tfra-key",
                         "the picture is broken after seeking until the next key sample"};
constexpr Rule kTime = {Severity::kWarning, "tfra-time",
                        "players that seek by the table go to another time"};
constexpr Rule kSize = {Severity::kWarning, "mfro-size",
                        "players that look from the end of the file do not find the table"};

// Writers give the time of decoding or of showing, with the gaps before it or without.
constexpr double kTolerance = 1;

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
    entry.time = all_.file.At(entry.place, timeWidth);
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
  trafOfTrack_.clear();
  if (next_ < entries_.size() && entries_[next_].moofOffset <= moof.offset) {
    for (const VerifiedRun& run : runs) trafOfTrack_.emplace(run.trackId, run.traf);
    // Written tables may hold no more than the low byte of the track ID.
    for (const VerifiedRun& run : runs) trafOfTrack_.emplace(run.trackId & 0xFF, run.traf);
  }
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

const VerifiedRun* SeekEntries::Find(const std::vector<VerifiedRun>& runs, uint32_t traf,
                                     uint32_t trun, uint32_t sample) {
  const auto run = std::lower_bound(
      runs.begin(), runs.end(), std::make_tuple(traf, trun),
      [](const VerifiedRun& a, auto wanted) { return std::make_tuple(a.traf, a.trun) < wanted; });
  const bool isThere = run != runs.end() && run->traf == traf && run->trun == trun && sample >= 1 &&
                       sample <= run->count;
  return isThere ? &*run : nullptr;
}

const VerifiedRun* SeekEntries::FindKey(const std::vector<VerifiedRun>& runs, uint32_t traf,
                                        uint32_t trun, uint32_t sample) {
  const VerifiedRun* const run = Find(runs, traf, trun, sample);
  return run != nullptr && IsKey(*run, sample - 1, &all_.file) ? run : nullptr;
}

void SeekEntries::CheckTime(const Entry& entry, const VerifiedRun& run) {
  const size_t index = all_.movie.trackOfId.at(run.trackId);
  const VerifiedTrack& track = all_.movie.tracks[index];
  if (track.timeScale == 0) return;
  const auto [place, isNew] = shifts_.try_emplace(run.trackId);
  if (isNew) place->second = ShiftOf(track, all_);
  const EditShift& shift = place->second;
  const double scale = track.timeScale;
  const double told = static_cast<double>(entry.time) / scale;
  const double begin = static_cast<double>(run.time) / scale;
  const double end = static_cast<double>(SumOf(run.time, run.duration)) / scale;
  if (told > begin + shift.skipped - kTolerance && told < end + shift.empty + kTolerance) return;
  all_.findings.Add(kTime, entry.tfra, entry.place, [&] {
    return "an entry for " + NumberText(told) + " s points at samples of " + NumberText(begin) +
           " to " + NumberText(end) + " s";
  });
}

void SeekEntries::CompareOne(const Entry& entry, const std::vector<VerifiedRun>& runs) {
  const auto name = [&] {
    return "sample " + std::to_string(entry.sample) + " of run " + std::to_string(entry.trun) +
           " of track fragment " + std::to_string(entry.traf) + " behind byte " +
           std::to_string(entry.moofOffset);
  };
  const auto traf = trafOfTrack_.find(entry.trackId);
  const bool isOfTrack = traf != trafOfTrack_.end();
  const bool isExact = isOfTrack && traf->second == entry.traf;
  const VerifiedRun* run = nullptr;
  if (isExact) run = FindKey(runs, entry.traf, entry.trun, entry.sample);
  if (run != nullptr) return CheckTime(entry, *run);
  // Writers differ in what they count: some take the number of the track or always 1 for that of
  // the track fragment, some count the run that is still to come.
  if (isOfTrack) {
    run = FindKey(runs, traf->second, entry.trun, entry.sample);
    if (run == nullptr) run = FindKey(runs, traf->second, entry.trun - 1, entry.sample);
  }
  if (run != nullptr) {
    CheckTime(entry, *run);
    all_.findings.Add(kNumbers, entry.tfra, entry.place, [&] {
      return name() + " is not the key sample of track ID " + std::to_string(entry.trackId) +
             " that is meant";
    });
  } else if (isExact && Find(runs, entry.traf, entry.trun, entry.sample) != nullptr) {
    all_.findings.Add(kNoKey, entry.tfra, entry.place,
                      [&] { return name() + " is no key sample"; });
  } else {
    all_.findings.Add(kNoSample, entry.tfra, entry.place, [&] {
      return "track ID " + std::to_string(entry.trackId) + " has no " + name();
    });
  }
}

}  // namespace qiro::k7m::tool
