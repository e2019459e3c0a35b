// The sample tables of every track: whether they agree with each other.
#include "verify_tables.h"

#include <algorithm>

#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kTimeCount = {Severity::kError, "stts-count",
                             "readers stop at the shorter table or refuse the file"};
constexpr Rule kOffsetCount = {Severity::kWarning, "ctts-count",
                               "samples without an offset are shown at their decode time"};
constexpr Rule kDependencyCount = {Severity::kWarning, "sdtp-count",
                                   "players that skip disposable samples skip wrong ones"};
constexpr Rule kMapShort = {Severity::kError, "stsc-short",
                            "the samples without a chunk cannot be found"};
constexpr Rule kMapLong = {Severity::kWarning, "stsc-long",
                           "readers that trust the chunk map read samples that are not there"};
constexpr Rule kMapOrder = {Severity::kError, "stsc-order",
                            "readers take samples from the wrong chunks"};
constexpr Rule kMapEmpty = {Severity::kError, "stsc-empty-chunk",
                            "readers divide by zero or lose the place of the samples behind"};
constexpr Rule kMapPastChunks = {Severity::kWarning, "stsc-past-chunks",
                                 "the run never begins; chunks have been lost"};
constexpr Rule kMapDescription = {Severity::kError, "stsc-description",
                                  "without a description the samples cannot be decoded"};
constexpr Rule kSyncOrder = {Severity::kError, "stss-order",
                             "players that search the table seek to the wrong sample"};
constexpr Rule kSyncRange = {Severity::kError, "stss-range",
                             "players seek to a sample that is not there"};

class TableChecks {
 public:
  TableChecks(VerifiedTrack* track, Verification* all)
      : track_(*track), file_(all->file), findings_(all->findings) {}

  SampleTables Run() {
    OpenAll();
    CheckCounts();
    CheckChunkMap();
    CheckSyncSamples();
    track_.sampleCount = tables_.sampleCount;
    return tables_;
  }

 private:
  VerifiedTable Open(const VerifiedBox* box, uint32_t stride) {
    return OpenTable(&file_, box, 4, 8, stride, &findings_);
  }
  const VerifiedBox* Find(uint32_t type) const { return ChildOf(track_.stbl, type); }

  void OpenAll() {
    tables_.times = Open(Find(FourCc("stts")), 8);
    tables_.offsets = Open(Find(FourCc("ctts")), 8);
    tables_.chunkMap = Open(Find(FourCc("stsc")), 12);
    tables_.syncSamples = Open(Find(FourCc("stss")), 4);
    tables_.chunks = Open(Find(FourCc("stco")), 4);
    if (tables_.chunks.box == nullptr) tables_.chunks = Open(Find(FourCc("co64")), 8);
    OpenSizes(Find(FourCc("stsz")));
  }
  void OpenSizes(const VerifiedBox* stsz) {
    if (stsz == nullptr || !HoldsFields(stsz, 12, &findings_)) return;
    tables_.equalSize = file_.U32At(stsz->Payload() + 4);
    if (tables_.equalSize == 0) {
      tables_.sizes = OpenTable(&file_, stsz, 8, 12, 4, &findings_);
      tables_.sampleCount = tables_.sizes.count;
    } else {
      tables_.sizes.box = stsz;
      tables_.sampleCount = file_.U32At(stsz->Payload() + 8);
    }
  }

  uint64_t SumOfRuns(const VerifiedTable& runs) {
    uint64_t sum = 0;
    for (uint64_t i = 0; i < runs.count; ++i) sum += file_.U32At(runs.Place(i));
    return sum;
  }
  void Compare(const Rule& rule, const VerifiedBox* box, uint64_t count) {
    if (box == nullptr || tables_.sizes.box == nullptr || count == tables_.sampleCount) return;
    findings_.Add(rule, box, box->offset, [&] {
      return "made for " + CountText(count, "sample") + ", 'stsz' has " +
             std::to_string(tables_.sampleCount);
    });
  }
  void CheckCounts() {
    Compare(kTimeCount, tables_.times.box, SumOfRuns(tables_.times));
    Compare(kOffsetCount, tables_.offsets.box, SumOfRuns(tables_.offsets));
    const VerifiedBox* const sdtp = Find(FourCc("sdtp"));
    if (sdtp != nullptr && HoldsFields(sdtp, 4, &findings_)) {
      Compare(kDependencyCount, sdtp, sdtp->PayloadSize() - 4);
    }
  }

  void CheckChunkMap();
  // The chunks of a run, and what is wrong with it.
  uint64_t CheckMapRun(uint64_t run, uint64_t chunkCount);
  void CheckSyncSamples();

  VerifiedTrack& track_;
  VerifiedFile& file_;
  Findings& findings_;
  SampleTables tables_;
};

void TableChecks::CheckChunkMap() {
  const VerifiedTable& map = tables_.chunkMap;
  if (map.box == nullptr || tables_.chunks.box == nullptr) return;
  uint64_t mapped = 0;
  for (uint64_t run = 0; run < map.count; ++run) {
    mapped += CheckMapRun(run, tables_.chunks.count) * file_.U32At(map.Place(run) + 4);
  }
  if (tables_.sizes.box == nullptr || mapped == tables_.sampleCount) return;
  findings_.Add(mapped < tables_.sampleCount ? kMapShort : kMapLong, map.box, map.box->offset, [&] {
    return CountText(tables_.chunks.count, "chunk") + " for " + CountText(mapped, "sample") +
           ", 'stsz' has " + std::to_string(tables_.sampleCount);
  });
}

uint64_t TableChecks::CheckMapRun(uint64_t run, uint64_t chunkCount) {
  const VerifiedTable& map = tables_.chunkMap;
  const uint64_t place = map.Place(run);
  const auto name = [&] { return "run " + std::to_string(run + 1) + ": "; };
  const uint64_t first = file_.U32At(place);
  const uint64_t least = run == 0 ? 1 : uint64_t{file_.U32At(map.Place(run - 1))} + 1;
  if (first < least || (run == 0 && first != 1)) {
    findings_.Add(kMapOrder, map.box, place, [&] {
      return name() + "first chunk " + std::to_string(first) + " where " + std::to_string(least) +
             (run == 0 ? " must stand" : " or more must stand");
    });
  } else if (first > chunkCount && chunkCount > 0) {
    findings_.Add(kMapPastChunks, map.box, place, [&] {
      return name() + "first chunk " + std::to_string(first) + " of " + std::to_string(chunkCount);
    });
  }
  if (file_.U32At(place + 4) == 0) {
    findings_.Add(kMapEmpty, map.box, place, [&] { return name() + "0 samples per chunk"; });
  }
  const uint32_t description = file_.U32At(place + 8);
  if (description == 0 || description > track_.descriptionCount) {
    findings_.Add(kMapDescription, map.box, place, [&] {
      return name() + "description " + std::to_string(description) + " of " +
             std::to_string(track_.descriptionCount);
    });
  }
  const uint64_t end = run + 1 < map.count ? file_.U32At(map.Place(run + 1)) : chunkCount + 1;
  const uint64_t begin = std::max<uint64_t>(first, 1);
  return std::max(begin, std::min(end, chunkCount + 1)) - begin;
}

void TableChecks::CheckSyncSamples() {
  const VerifiedTable& table = tables_.syncSamples;
  uint32_t last = 0;
  for (uint64_t i = 0; i < table.count; ++i) {
    const uint32_t number = file_.U32At(table.Place(i));
    if (number == 0 || (number > tables_.sampleCount && tables_.sizes.box != nullptr)) {
      findings_.Add(kSyncRange, table.box, table.Place(i), [&] {
        return "entry " + std::to_string(i + 1) + " names sample " + std::to_string(number) +
               " of " + std::to_string(tables_.sampleCount);
      });
    } else if (number <= last) {
      findings_.Add(kSyncOrder, table.box, table.Place(i), [&] {
        return "entry " + std::to_string(i + 1) + " names sample " + std::to_string(number) +
               " behind sample " + std::to_string(last);
      });
    }
    last = number;
  }
}

}  // namespace

std::string SamplesText(uint64_t index, uint64_t count) {
  if (count == 1) return "sample " + std::to_string(index + 1);
  return "samples " + std::to_string(index + 1) + " to " + std::to_string(index + count);
}

void DecodeClock::Advance(uint64_t count) {
  while (count > 0) {
    if (left_ == 0) {
      if (nextRun_ == times_.count) return;
      left_ = file_.U32At(times_.Place(nextRun_));
      delta_ = file_.U32At(times_.Place(nextRun_) + 4);
      ++nextRun_;
    }
    const uint64_t step = std::min(count, left_);
    now_ = SumOf(now_, step * delta_);
    left_ -= step;
    count -= step;
  }
}

void CheckTables(Verification* all) {
  for (uint32_t i = 0; i < all->movie.tracks.size(); ++i) {
    VerifiedTrack& track = all->movie.tracks[i];
    if (track.stbl == nullptr) continue;
    const SampleTables tables = TableChecks(&track, all).Run();
    CheckSampleTimes(tables, &track, all);
    CheckChunks(tables, i, all);
  }
}

}  // namespace qiro::k7m::tool
