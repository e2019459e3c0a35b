/// @file verify_index.h
/// The tables that point at fragments: 'tfra' in 'mfra', 'afra', 'sidx'.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "verify_runs.h"

namespace qiro::k7m::tool {

/// All 'tfra' entries of a file, to be compared with the fragments as they come.
class SeekEntries {
 public:
  explicit SeekEntries(Verification* all) : all_(*all) {}

  /// Takes the entries of an 'mfra', whose children are known and stay.
  void Add(const VerifiedBox& mfra);
  /// Must be called once between the two, when all boxes have been added.
  void Sort();
  /// Compares the entries for a fragment with it. Fragments come in file order.
  void Compare(const VerifiedBox& moof, const std::vector<VerifiedRun>& runs);
  /// Names the entries for which no fragment came.
  void Finish();

 private:
  struct Entry {
    uint64_t time = 0;
    uint64_t moofOffset = 0;
    uint32_t traf = 0;
    uint32_t trun = 0;
    uint32_t sample = 0;
    uint32_t trackId = 0;
    uint64_t place = 0;  // Of the entry itself.
    const VerifiedBox* tfra = nullptr;
  };

  void AddTable(const VerifiedBox& tfra);
  void CheckSize(const VerifiedBox& mfra);
  void CompareOne(const Entry& entry, const std::vector<VerifiedRun>& runs);
  void PointsAtNothing(const Entry& entry);
  // Whether its time lies within the run that it points at.
  void CheckTime(const Entry& entry, const VerifiedRun& run);
  // Null when there is no such sample.
  static const VerifiedRun* Find(const std::vector<VerifiedRun>& runs, uint32_t traf, uint32_t trun,
                                 uint32_t sample);
  // Null as well when it is no key sample.
  const VerifiedRun* FindKey(const std::vector<VerifiedRun>& runs, uint32_t traf, uint32_t trun,
                             uint32_t sample);

  Verification& all_;
  std::vector<Entry> entries_;
  size_t next_ = 0;
  std::unordered_map<uint32_t, uint32_t> trafOfTrack_;  // The first one in the fragment.
  std::unordered_map<uint32_t, EditShift> shifts_;      // By track ID; made when it is needed.
};

/// The local entries of an 'afra' against the fragment behind it.
class AccessEntries {
 public:
  explicit AccessEntries(Verification* all);

  /// Checks what the box itself says, and keeps it for the fragment.
  void Begin(const VerifiedBox& afra);
  void Compare(const std::vector<VerifiedRun>& runs);

 private:
  struct SampleStart {
    uint64_t offset = 0;
    bool isKey = false;
  };

  struct GlobalEntry {
    const VerifiedBox* afra = nullptr;
    uint64_t place = 0;     // Of the entry itself.
    uint64_t number = 0;    // From 1.
    uint64_t target = 0;    // Of the other 'afra'.
    uint64_t inside = 0;    // Of a sample, from that 'afra'.
    uint64_t notThere = 0;  // What an offset is that is not known.
  };

  bool GatherStarts(const std::vector<VerifiedRun>& runs);
  void CheckGlobals(const VerifiedBox& afra, uint64_t place, bool hasLongIds);
  void CheckGlobal(const GlobalEntry& entry);

  Verification& all_;
  std::vector<uint64_t> afraOffsets_;  // Of the whole file, in file order.
  VerifiedTable entries_;              // Of the 'afra' that waits for its fragment.
  std::vector<SampleStart> starts_;
  uint64_t startsLeft_;  // As many may still be gathered in this file.
};

/// The references of a 'sidx' box.
void CheckSegmentIndex(const VerifiedBox& sidx, const std::vector<uint64_t>& topLevelOffsets,
                       Verification* all);

}  // namespace qiro::k7m::tool
