/// @file heap_watch.h
/// Counts and faults of the global operators new and delete. They are replaced only in programs
/// that link heap_watch_operators.cpp; elsewhere everything stays 0 and no fault happens.
#ifndef K7M_TESTS_SUPPORT_HEAP_WATCH_H
#define K7M_TESTS_SUPPORT_HEAP_WATCH_H

#include <cstddef>
#include <cstdint>

namespace k7mtest {

struct HeapCounts {
  int64_t liveBlocks = 0;
  int64_t liveBytes = 0;
  int64_t peakBytes = 0;  ///< Since the program's start or the last ResetHeapPeak().
  uint64_t allocations = 0;
};

/// Whether the operators are replaced in this program.
bool HeapIsWatched();
HeapCounts CountHeap();
/// Makes the present live bytes the peak.
void ResetHeapPeak();

/// While it lives, the n-th allocation (from 1) through the global operators throws std::bad_alloc.
class HeapFault {
 public:
  explicit HeapFault(uint64_t n);
  ~HeapFault();
  HeapFault(const HeapFault&) = delete;
  HeapFault& operator=(const HeapFault&) = delete;
  bool Hit() const;
  /// Whether the allocation that failed was of the form that answers null instead of throwing: its
  /// caller goes on without the memory.
  bool WasQuiet() const;
};

namespace internal {

/// Called by the replaced operators. False: this allocation is to fail.
bool NoteAllocation(bool isQuiet);
void NoteBlock(size_t size);
void NoteRelease(size_t size);

}  // namespace internal

}  // namespace k7mtest

#endif
