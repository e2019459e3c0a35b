#include "verify_runs.h"

#include <algorithm>
#include <array>
#include <bit>

#include "text_format.h"
#include "verify_tables.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kSequence = {Severity::kWarning, "fragment-sequence",
                            "players that check the order drop the fragment as old or doubled"};
constexpr Rule kNoTrack = {Severity::kError, "fragment-track",
                           "readers refuse the fragment or skip the samples"};
constexpr Rule kNoDefaults = {Severity::kError, "trex-missing", "readers refuse the file"};
constexpr Rule kDescription = {Severity::kError, "fragment-description",
                               "without a description the samples cannot be decoded"};
constexpr Rule kHeader = {Severity::kError, "tfhd-truncated", "readers refuse the fragment"};
constexpr Rule kRecords = {Severity::kError, "trun-truncated",
                           "readers refuse the fragment or lose samples"};
constexpr Rule kGap = {Severity::kWarning, "fragment-gap",
                       "players stall or show nothing for that time"};
constexpr Rule kOverlap = {Severity::kWarning, "fragment-overlap",
                           "players drop or repeat samples"};

// In 'tfhd'.
constexpr uint32_t kHasBase = 0x01;
constexpr uint32_t kHasDescription = 0x02;
constexpr uint32_t kHasDefaultDuration = 0x08;
constexpr uint32_t kHasDefaultSize = 0x10;
constexpr uint32_t kHasDefaultFlags = 0x20;
constexpr uint32_t kBaseIsMoof = 0x020000;
// In 'trun'.
constexpr uint32_t kHasDataOffset = 0x001;
constexpr uint32_t kHasFirstFlags = 0x004;
constexpr uint32_t kHasDuration = 0x100;
constexpr uint32_t kHasSize = 0x200;
constexpr uint32_t kHasFlags = 0x400;
constexpr uint32_t kRecordFields = 0xF00;
// A sample with neither bit can be decoded by itself.
constexpr uint32_t kDependentSample = 0x01010000;
constexpr double kTimeTolerance = 0.001;

// The place of a field among those of a record or header that come before it.
uint64_t FieldsBefore(uint32_t flags, uint32_t field) {
  return uint64_t{4} * static_cast<unsigned>(std::popcount(flags & (field - 1)));
}

uint32_t RecordField(const VerifiedRun& run, uint64_t index, uint32_t field, VerifiedFile* file) {
  return file->U32At(run.records + index * run.stride +
                     FieldsBefore(run.flags & kRecordFields, field));
}

}  // namespace

uint32_t SizeOf(const VerifiedRun& run, uint64_t index, VerifiedFile* file) {
  if ((run.flags & kHasSize) == 0) return run.defaults.size;
  return RecordField(run, index, kHasSize, file);
}

bool IsKey(const VerifiedRun& run, uint64_t index, VerifiedFile* file) {
  uint32_t flags = run.defaults.flags;
  if ((run.flags & kHasFlags) != 0) {
    flags = RecordField(run, index, kHasFlags, file);
  } else if (index == 0 && (run.flags & kHasFirstFlags) != 0) {
    flags = run.firstSampleFlags;
  }
  return (flags & kDependentSample) == 0;
}

std::vector<VerifiedRun> FragmentReading::Read(const VerifiedBox& moof) {
  CheckSequence(ChildOf(&moof, FourCc("mfhd")));
  Fragment fragment;
  fragment.moofOffset = moof.offset;
  // Without the movie box neither defaults nor tracks are known.
  if (all_.movie.moov == nullptr) return {};
  uint32_t number = 0;
  for (const VerifiedBox* box = moof.firstChild; box != nullptr; box = box->next) {
    if (box->type == FourCc("traf")) ReadTrackFragment(*box, ++number, &fragment);
  }
  return std::move(fragment.runs);
}

void FragmentReading::CheckSequence(const VerifiedBox* mfhd) {
  if (mfhd == nullptr || !HoldsFields(mfhd, 8, &all_.findings)) return;
  const uint32_t sequence = all_.file.U32At(mfhd->Payload() + 4);
  if (hasSequence_ && sequence <= lastSequence_) {
    all_.findings.Add(kSequence, mfhd, mfhd->offset, [&] {
      return "fragment number " + std::to_string(sequence) + " behind number " +
             std::to_string(lastSequence_);
    });
  }
  lastSequence_ = sequence;
  hasSequence_ = true;
}

void FragmentReading::ReadTrackFragment(const VerifiedBox& traf, uint32_t number,
                                        Fragment* fragment) {
  const VerifiedBox* const tfhd = ChildOf(&traf, FourCc("tfhd"));
  VerifiedRun common;
  common.traf = number;
  if (tfhd == nullptr || !ReadHeader(*tfhd, fragment, &common)) return;
  const auto track = all_.movie.trackOfId.find(common.trackId);
  if (track == all_.movie.trackOfId.end()) return;
  const auto trackIndex = static_cast<uint32_t>(track->second);
  CheckDescription(*tfhd, common.defaults.description, all_.movie.tracks[trackIndex]);
  ReadStartTime(ChildOf(&traf, FourCc("tfdt")), trackIndex);
  uint64_t dataEnd = common.begin;
  for (const VerifiedBox* box = traf.firstChild; box != nullptr; box = box->next) {
    if (box->type != FourCc("trun")) continue;
    ++common.trun;
    VerifiedRun run = common;
    if (!ReadRun(*box, &run, &dataEnd)) continue;
    Place(&run, trackIndex);
    fragment->runs.push_back(run);
  }
  fragment->isFirstTrack = false;
  fragment->dataEnd = dataEnd;
}

// False: nothing can be said about the samples.
bool FragmentReading::ReadHeader(const VerifiedBox& tfhd, Fragment* fragment, VerifiedRun* common) {
  if (!HoldsFields(&tfhd, 8, &all_.findings)) return false;
  const uint32_t flags = all_.file.U32At(tfhd.Payload()) & 0xFFFFFF;
  common->trackId = all_.file.U32At(tfhd.Payload() + 4);
  const auto name = [&] { return "track ID " + std::to_string(common->trackId); };
  if (all_.movie.trackOfId.count(common->trackId) == 0) {
    all_.findings.Add(kNoTrack, &tfhd, tfhd.offset, [&] { return "no track has the " + name(); });
  }
  const auto defaults = all_.movie.defaultsOfId.find(common->trackId);
  if (defaults == all_.movie.defaultsOfId.end()) {
    all_.findings.Add(kNoDefaults, &tfhd, tfhd.offset,
                      [&] { return "no 'trex' box in the movie box for " + name(); });
    common->defaults.description = 1;  // One finding is enough.
  } else {
    common->defaults = defaults->second;
  }
  common->begin = fragment->dataEnd;
  if ((flags & kBaseIsMoof) != 0 || fragment->isFirstTrack) common->begin = fragment->moofOffset;
  uint64_t place = tfhd.Payload() + 8;
  if ((flags & kHasBase) != 0) common->begin = all_.file.At(place, 8);
  place += (flags & kHasBase) != 0 ? 8 : 0;
  const std::array<std::pair<uint32_t, uint32_t*>, 4> fields = {
      {{kHasDescription, &common->defaults.description},
       {kHasDefaultDuration, &common->defaults.duration},
       {kHasDefaultSize, &common->defaults.size},
       {kHasDefaultFlags, &common->defaults.flags}}};
  for (const auto& [flag, value] : fields) {
    if ((flags & flag) == 0) continue;
    *value = all_.file.U32At(place);
    place += 4;
  }
  if (place <= tfhd.End()) return true;
  all_.findings.Add(kHeader, &tfhd, tfhd.offset, [&] {
    return "its flags announce " + std::to_string(place - tfhd.Payload()) + " bytes, it has " +
           std::to_string(tfhd.PayloadSize());
  });
  return false;
}

void FragmentReading::CheckDescription(const VerifiedBox& tfhd, uint32_t description,
                                       const VerifiedTrack& track) {
  if (description > 0 && description <= track.descriptionCount) return;
  all_.findings.Add(kDescription, &tfhd, tfhd.offset, [&] {
    return "description " + std::to_string(description) + " of " +
           std::to_string(track.descriptionCount);
  });
}

void FragmentReading::ReadStartTime(const VerifiedBox* tfdt, uint32_t trackIndex) {
  const VerifiedTrack& track = all_.movie.tracks[trackIndex];
  const bool hasBegun = ends_.count(trackIndex) != 0 || track.sampleCount > 0;
  uint64_t& end = ends_.emplace(trackIndex, track.tableDuration).first->second;
  if (tfdt == nullptr || !HoldsFields(tfdt, 8, &all_.findings)) return;
  const bool isLong = all_.file.At(tfdt->Payload(), 1) != 0;
  if (isLong && !HoldsFields(tfdt, 12, &all_.findings)) return;
  const uint64_t time = all_.file.At(tfdt->Payload() + 4, isLong ? 8 : 4);
  const uint64_t distance = time > end ? time - end : end - time;
  const double seconds = track.timeScale == 0 ? 0 : static_cast<double>(distance) / track.timeScale;
  if (hasBegun && seconds > kTimeTolerance) {
    all_.findings.Add(time > end ? kGap : kOverlap, tfdt, tfdt->offset, [&] {
      return "it begins " + NumberText(seconds) + " s " + (time > end ? "behind" : "before") +
             " the end of the track's samples so far (" + std::to_string(time) + " and " +
             std::to_string(end) + ")";
    });
  }
  end = time;
}

// False when the box does not hold its own fields.
bool FragmentReading::ReadRun(const VerifiedBox& trun, VerifiedRun* run, uint64_t* dataEnd) {
  if (!HoldsFields(&trun, 8, &all_.findings)) return false;
  run->box = &trun;
  run->flags = all_.file.U32At(trun.Payload()) & 0xFFFFFF;
  run->count = all_.file.U32At(trun.Payload() + 4);
  const bool hasDataOffset = (run->flags & kHasDataOffset) != 0;
  const bool hasFirstFlags = (run->flags & kHasFirstFlags) != 0;
  const uint64_t head = uint64_t{8} + (hasDataOffset ? 4 : 0) + (hasFirstFlags ? 4 : 0);
  if (!HoldsFields(&trun, head, &all_.findings)) return false;
  uint64_t begin = *dataEnd;
  if (hasDataOffset) {
    const auto offset = static_cast<int32_t>(all_.file.U32At(trun.Payload() + 8));
    begin = run->begin + static_cast<uint64_t>(int64_t{offset});
  }
  run->begin = begin;
  if (hasFirstFlags) run->firstSampleFlags = all_.file.U32At(trun.Payload() + head - 4);
  run->records = trun.Payload() + head;
  run->stride = 4 * static_cast<uint32_t>(std::popcount(run->flags & kRecordFields));
  const uint64_t room = run->stride == 0 ? run->count : (trun.End() - run->records) / run->stride;
  if (room < run->count) {
    all_.findings.Add(kRecords, &trun, trun.offset, [&] {
      return std::to_string(run->count) + " samples announced, room for " + std::to_string(room);
    });
    run->count = room;
  }
  MeasureRun(run);
  *dataEnd = SumOf(run->begin, run->size);
  return true;
}

void FragmentReading::MeasureRun(VerifiedRun* run) {
  const bool hasOwnSizes = (run->flags & kHasSize) != 0;
  const bool hasOwnDurations = (run->flags & kHasDuration) != 0;
  if (!hasOwnSizes) run->size = run->count * run->defaults.size;
  if (!hasOwnDurations) run->duration = run->count * run->defaults.duration;
  if (!hasOwnSizes && !hasOwnDurations) return;
  for (uint64_t i = 0; i < run->count; ++i) {
    if (hasOwnDurations) run->duration += RecordField(*run, i, kHasDuration, &all_.file);
    if (!hasOwnSizes) continue;
    const uint32_t size = SizeOf(*run, i, &all_.file);
    run->size += size;
    if (size > 0) continue;
    all_.findings.Add(kSampleEmpty, run->box, run->records + i * run->stride,
                      [&] { return SamplesText(i, 1) + " of the run has no bytes"; });
  }
}

// Enters the run's place and times among those of all tracks.
void FragmentReading::Place(VerifiedRun* run, uint32_t trackIndex) {
  const VerifiedTrack& track = all_.movie.tracks[trackIndex];
  const uint64_t end = SumOf(run->begin, run->size);
  if (run->count > 0 && end > all_.file.Length() && !track.hasMediaElsewhere) {
    all_.findings.Add(kSamplePastEnd, run->box, run->box->offset, [&] {
      return "its " + CountText(run->count, "sample") +
             (run->begin > INT64_MAX
                  ? std::string(" begin before the file")
                  : " run from byte " + std::to_string(run->begin) + " to " + std::to_string(end) +
                        ", the file has " + std::to_string(all_.file.Length()));
    });
  }
  uint64_t& time = ends_[trackIndex];
  run->time = time;
  const double scale = track.timeScale == 0 ? 1 : track.timeScale;
  Extent extent{.begin = run->begin,
                .end = end,
                .seconds = static_cast<double>(time) / scale,
                .track = trackIndex};
  time = SumOf(time, run->duration);
  extent.endSeconds = static_cast<double>(time) / scale;
  if (!track.hasMediaElsewhere) all_.extents.Add(extent);
}

void FragmentReading::Finish() {
  for (const auto& [index, end] : ends_) all_.movie.tracks[index].fragmentsEnd = end;
}

}  // namespace qiro::k7m::tool
