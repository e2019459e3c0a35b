#pragma once

#include <cstddef>
#include <cstdint>

#include "base/record_table.h"
#include "boxes/track_run.h"

namespace qiro::k7m::impl {

/// The samples of a 'traf': runs, one behind the other. The runs and their records belong to
/// somebody else.
struct TrackFragment {
  uint64_t startTime = 0;
  uint64_t endTime = 0;
  uint64_t sampleCount = 0;
  const TrackRun* runs = nullptr;  ///< Those with samples.
  uint32_t runCount = 0;
  /// After the defaults of the movie box.
  uint32_t descriptionIndex = 0;
  /// The sum of the durations passed 64 bits, so that the times are in no order.
  bool timesWrap = false;

  void Start(uint64_t time) { startTime = endTime = time; }
  /// Gives the run its times, behind the runs so far.
  void Lengthen(TrackRun& run);
  /// The index of the first run that can hold a sample at or after a decode time.
  size_t FindRunEndingAtOrAfter(uint64_t time) const;
};

/// The fragments of one track that were parsed so far, in file order. Those without samples cover
/// no time and are left out.
class TrackFragments {
 public:
  struct Entry : TrackFragment {
    size_t firstOfMoof;  ///< Index of the track's first one in the same 'moof'.
    uint64_t moofOffset;
  };

  /// The callbacks outlive the object.
  explicit TrackFragments(const QiroK7MAllocatorCallBacks* allocator)
      : entries_(allocator), latestEnds_(allocator) {}

  /// Tells of a fragment in the 'moof' that is being completed, and makes room for it. What is told
  /// of one 'moof' is forgotten when a fragment of another one is.
  void Announce(uint64_t moofNumber, uint64_t endTime);
  /// Where the next one starts unless it says otherwise: in the 'moof' of that number behind what
  /// was announced there.
  uint64_t NextStartTime(uint64_t moofNumber) const;
  /// Takes one that was announced, which cannot fail.
  void Add(const TrackFragment& fragment, uint64_t moofOffset);
  /// Forgets those of a 'moof' behind `offset`.
  void ForgetBehind(uint64_t offset);

  size_t Size() const { return entries_.size(); }
  const TrackFragment& At(size_t index) const { return entries_[index]; }
  uint64_t GetSampleCount() const { return sampleCount_; }

  /// The first one to read for samples from `time` on. It stands in the 'moof' of the last one with
  /// start <= time <= end; Size() when there is none among those from `begin` on.
  size_t FindCovering(uint64_t time, size_t begin) const;
  /// The first one that ends after `time`; Size() when there is none.
  size_t FindFirstEndingAfter(uint64_t time) const;

 private:
  size_t FindLastCovering(uint64_t time, size_t begin) const;
  /// How many start at or before `time`, where they are in order.
  size_t CountStartedBy(uint64_t time) const;

  struct Announced {
    uint64_t moofNumber = 0;
    uint64_t endTime = 0;  ///< Of the last one.
    size_t count = 0;
  };

  const Entry& Last() const { return entries_[Size() - 1]; }

  RecordTable<Entry> entries_;
  /// The latest end of each one and all before it, apart: searches go through them, and what they
  /// look at should be small.
  RecordTable<uint64_t> latestEnds_;
  Announced announced_;
  uint64_t sampleCount_ = 0;
  bool isInOrder_ = true;
  bool isDisjoint_ = true;  ///< Each one starts where the one before it ends, or later.
};

}  // namespace qiro::k7m::impl
