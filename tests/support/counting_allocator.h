/// @file counting_allocator.h
/// Memory callbacks that keep books.
#ifndef K7M_TESTS_SUPPORT_COUNTING_ALLOCATOR_H
#define K7M_TESTS_SUPPORT_COUNTING_ALLOCATOR_H

#include <cstdint>
#include <map>

#include "k7m/allocator.h"
#include "malloc_allocator.h"

namespace k7mtest {

class CountingAllocator {
 public:
  CountingAllocator() = default;
  CountingAllocator(const CountingAllocator&) = delete;
  CountingAllocator& operator=(const CountingAllocator&) = delete;
  ~CountingAllocator();  ///< Frees what was leaked, so that the test's own verdict is the only one.

  /// A record that leads here; this object must outlive its use.
  QiroK7MAllocatorCallBacks Record();

  /// Lets the n-th allocation (from 1, counted from now) throw std::bad_alloc.
  void FailNth(uint64_t n) {
    failCountdown_ = n;
    faultHit_ = false;
  }
  bool FaultHit() const { return faultHit_; }

  uint64_t LiveBlocks() const { return blocks_.size(); }
  uint64_t LiveBytes() const { return liveBytes_; }
  uint64_t PeakBytes() const { return peakBytes_; }
  uint64_t Allocations() const { return allocations_; }
  uint64_t Releases() const { return releases_; }
  /// The size of the largest single request.
  uint64_t LargestRequest() const { return largestRequest_; }
  /// Releases of null, of a block that is not live, or with another client data.
  uint64_t BadReleases() const { return badReleases_; }

 private:
  static void* Allocate(void* clientData, uint64_t byteCount);
  static void Release(void* clientData, void* block);

  std::map<void*, uint64_t, std::less<>, MallocAllocator<std::pair<void* const, uint64_t>>> blocks_;
  uint64_t failCountdown_ = 0;
  bool faultHit_ = false;
  uint64_t liveBytes_ = 0;
  uint64_t peakBytes_ = 0;
  uint64_t allocations_ = 0;
  uint64_t releases_ = 0;
  uint64_t largestRequest_ = 0;
  uint64_t badReleases_ = 0;
};

}  // namespace k7mtest

#endif
