// Decode times that do not rise, and composition times before 0.
#include <algorithm>

#include "text_format.h"
#include "verify_tables.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kTimeRepeats = {Severity::kWarning, "decode-time-repeats",
                               "players show only one of the samples, muxers refuse them"};
constexpr Rule kTimeLeaps = {Severity::kWarning, "decode-order",
                             "meant as a step back, it is read as a leap of hours"};
constexpr Rule kShownTooEarly = {Severity::kWarning, "composition-negative",
                                 "players drop the samples or show them late"};

void CheckDecodeTimes(const SampleTables& tables, Verification* all) {
  const VerifiedTable& times = tables.times;
  uint64_t index = 0;
  for (uint64_t run = 0; run < times.count; ++run) {
    const uint64_t place = times.Place(run);
    const uint64_t count = all->file.U32At(place);
    const uint32_t delta = all->file.U32At(place + 4);
    // The last sample of all needs no duration.
    const bool hasNext = count > 1 || (count == 1 && index + count < tables.sampleCount);
    if (delta == 0 && hasNext) {
      all->findings.Add(kTimeRepeats, times.box, place,
                        [&] { return SamplesText(index, count) + " take no time"; });
    }
    if (delta > INT32_MAX && count > 0) {
      all->findings.Add(kTimeLeaps, times.box, place, [&] {
        return SamplesText(index, count) + " last " + std::to_string(delta) + " units each";
      });
    }
    index += count;
  }
}

// The offset applied; times before 0 are 0.
uint64_t Shown(uint64_t time, int32_t offset) {
  if (offset >= 0) return SumOf(time, static_cast<uint64_t>(offset));
  const auto earlier = static_cast<uint64_t>(-int64_t{offset});
  return time > earlier ? time - earlier : 0;
}

void CheckCompositionTimes(const SampleTables& tables, VerifiedTrack* track, Verification* all) {
  const VerifiedTable& offsets = tables.offsets;
  DecodeClock clock(&all->file, tables.times);
  uint64_t index = 0;
  uint64_t shownFrom = UINT64_MAX;
  for (uint64_t run = 0; run < offsets.count && index < tables.sampleCount; ++run) {
    const uint64_t place = offsets.Place(run);
    const uint64_t count = std::min<uint64_t>(all->file.U32At(place), tables.sampleCount - index);
    const auto offset = static_cast<int32_t>(all->file.U32At(place + 4));
    if (count == 0) continue;
    // Of a run the first sample comes first; one finding a run is enough.
    const uint64_t time = clock.Now();
    if (offset < 0 && time < static_cast<uint64_t>(-int64_t{offset})) {
      all->findings.Add(kShownTooEarly, offsets.box, place, [&] {
        return "sample " + std::to_string(index + 1) + " is decoded at " + std::to_string(time) +
               " and shown " + std::to_string(-int64_t{offset}) + " before that";
      });
    }
    clock.Advance(count);
    index += count;
    shownFrom = std::min(shownFrom, Shown(time, offset));
    track->shownUntil = std::max(track->shownUntil, Shown(clock.Now(), offset));
  }
  // The rest has no offset.
  if (index < tables.sampleCount) shownFrom = std::min(shownFrom, clock.Now());
  clock.Advance(tables.sampleCount - index);
  track->tableDuration = clock.Now();
  track->shownUntil = std::max(track->shownUntil, track->tableDuration);
  track->shownFrom = std::min(shownFrom, track->shownUntil);
}

}  // namespace

void CheckSampleTimes(const SampleTables& tables, VerifiedTrack* track, Verification* all) {
  CheckDecodeTimes(tables, all);
  CheckCompositionTimes(tables, track, all);
}

}  // namespace qiro::k7m::tool
