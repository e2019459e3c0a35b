/// @file verify_tables.h
/// The sample tables of a track.
#pragma once

#include <cstdint>
#include <string>

#include "verify_checks.h"

namespace qiro::k7m::tool {

struct SampleTables {
  VerifiedTable times;        ///< 'stts': count, delta.
  VerifiedTable offsets;      ///< 'ctts': count, offset.
  VerifiedTable chunkMap;     ///< 'stsc': first chunk, samples per chunk, description.
  VerifiedTable chunks;       ///< 'stco' or 'co64'.
  VerifiedTable sizes;        ///< 'stsz'; without entries when all sizes are equal.
  VerifiedTable syncSamples;  ///< 'stss'.
  uint32_t equalSize = 0;     ///< Of every sample; 0: each has its own.
  uint64_t sampleCount = 0;
};

/// A sum that stays at the greatest number instead of wrapping.
inline uint64_t SumOf(uint64_t a, uint64_t b) { return a + b < a ? UINT64_MAX : a + b; }

/// "sample 3", "samples 3 to 5"; `index` counts from 0.
std::string SamplesText(uint64_t index, uint64_t count);

/// A walk through 'stts' in steps of several samples.
class DecodeClock {
 public:
  DecodeClock(VerifiedFile* file, const VerifiedTable& times) : file_(*file), times_(times) {}
  void Advance(uint64_t count);
  /// Decode time of the sample that has been reached.
  uint64_t Now() const { return now_; }

 private:
  VerifiedFile& file_;
  VerifiedTable times_;
  uint64_t nextRun_ = 0;
  uint64_t left_ = 0;  // Samples of the run.
  uint32_t delta_ = 0;
  uint64_t now_ = 0;
};

/// Decode times that do not rise, and composition times before 0. Fills the times of the track.
void CheckSampleTimes(const SampleTables& tables, VerifiedTrack* track, Verification* all);
/// Where the chunks put the samples of a track.
void CheckChunks(const SampleTables& tables, uint32_t trackIndex, Verification* all);

}  // namespace qiro::k7m::tool
