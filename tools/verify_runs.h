/// @file verify_runs.h
/// The samples of one fragment, run by run.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "verify_checks.h"

namespace qiro::k7m::tool {

/// A 'trun' with everything that it takes from elsewhere.
struct VerifiedRun {
  const VerifiedBox* box = nullptr;
  uint32_t traf = 0;  ///< Number of the 'traf' in its 'moof', from 1.
  uint32_t trun = 0;  ///< Number of the 'trun' in its 'traf', from 1.
  uint32_t trackId = 0;
  uint64_t begin = 0;  ///< Of the data, in the file.
  uint64_t size = 0;   ///< Of the data.
  uint64_t time = 0;   ///< Of the first sample, in track time scale.
  uint64_t duration = 0;
  uint64_t count = 0;
  uint32_t flags = 0;    ///< Of the box: which fields the records have.
  uint64_t records = 0;  ///< Where they begin.
  uint32_t stride = 0;   ///< Bytes of a record.
  uint32_t firstSampleFlags = 0;
  FragmentDefaults defaults;
};

/// The size of a sample of the run, by its index from 0.
uint32_t SizeOf(const VerifiedRun& run, uint64_t index, VerifiedFile* file);
bool IsKey(const VerifiedRun& run, uint64_t index, VerifiedFile* file);

/// Reads fragment after fragment; times go on from one to the next.
class FragmentReading {
 public:
  explicit FragmentReading(Verification* all) : all_(*all) {}

  /// The runs of a 'moof', whose children are known, in file order. Says what is wrong with them.
  std::vector<VerifiedRun> Read(const VerifiedBox& moof);
  /// Behind the last fragment: tells the tracks where they end.
  void Finish();

 private:
  struct Fragment {
    uint64_t moofOffset = 0;
    bool isFirstTrack = true;
    uint64_t dataEnd = 0;  // Of the track fragment before.
    std::vector<VerifiedRun> runs;
  };

  void ReadTrackFragment(const VerifiedBox& traf, uint32_t number, Fragment* fragment);
  bool ReadHeader(const VerifiedBox& tfhd, Fragment* fragment, VerifiedRun* common);
  void ReadStartTime(const VerifiedBox* tfdt, uint32_t trackIndex);
  bool ReadRun(const VerifiedBox& trun, VerifiedRun* run, uint64_t* dataEnd);
  void MeasureRun(VerifiedRun* run);
  void CheckSequence(const VerifiedBox* mfhd);
  void CheckDescription(const VerifiedBox& tfhd, uint32_t description, const VerifiedTrack& track);
  void Place(VerifiedRun* run, uint32_t trackIndex);

  Verification& all_;
  uint32_t lastSequence_ = 0;
  bool hasSequence_ = false;
  std::unordered_map<uint32_t, uint64_t> ends_;  // By track: the time at which its samples end.
};

}  // namespace qiro::k7m::tool
