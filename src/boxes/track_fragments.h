#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "base/allocation.h"

namespace qiro::k7m::impl {

class TrafBox;

/// The fragments of one track that were parsed so far, in file order. Those without samples cover
/// no time and are left out.
class TrackFragments {
 public:
  struct Entry {
    const TrafBox* traf;
    uint64_t startTime;
    uint64_t endTime;
    uint64_t latestEnd;  ///< Of this one and all before it.
    size_t firstOfMoof;  ///< Index of the track's first one in the same 'moof'.
  };

  explicit TrackFragments(const QiroK7MAllocatorCallBacks* allocator)
      : entries_(K7MAllocator<Entry>(allocator)) {}

  /// Makes room for `count` more.
  void Reserve(size_t count);
  /// Cannot fail when there is room.
  void Add(const TrafBox& traf, uint64_t moofOffset);
  /// Forgets those that begin behind `offset`.
  void ForgetBehind(uint64_t offset);

  size_t Size() const { return entries_.size(); }
  const TrafBox* At(size_t index) const { return entries_[index].traf; }
  uint64_t GetSampleCount() const { return sampleCount_; }
  /// Where the next one starts unless it says otherwise.
  uint64_t NextStartTime() const { return entries_.empty() ? 0 : entries_.back().endTime; }

  /// The first one to read for samples from `time` on. It stands in the 'moof' of the last one with
  /// start <= time <= end; Size() when there is none among those from `begin` on.
  size_t FindCovering(uint64_t time, size_t begin) const;
  /// The first one that ends after `time`; Size() when there is none.
  size_t FindFirstEndingAfter(uint64_t time) const;

 private:
  size_t FindLastCovering(uint64_t time, size_t begin) const;

  K7MVector<Entry> entries_;
  uint64_t sampleCount_ = 0;
  std::optional<uint64_t> lastMoofOffset_;
  bool isInOrder_ = true;
};

}  // namespace qiro::k7m::impl
