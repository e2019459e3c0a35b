#include "heap_watch.h"

#include <atomic>

namespace k7mtest {

namespace {

std::atomic<int64_t> liveBlocks{0};
std::atomic<int64_t> liveBytes{0};
std::atomic<int64_t> peakBytes{0};
std::atomic<uint64_t> allocations{0};
std::atomic<uint64_t> countdown{0};
std::atomic<bool> isHit{false};
std::atomic<bool> wasQuiet{false};

}  // namespace

bool HeapIsWatched() {
  const uint64_t before = allocations.load();
  // Called as functions: a new-expression may be optimised away.
  ::operator delete(::operator new(1));
  return allocations.load() != before;
}

HeapCounts CountHeap() {
  return {liveBlocks.load(), liveBytes.load(), peakBytes.load(), allocations.load()};
}

void ResetHeapPeak() { peakBytes.store(liveBytes.load()); }

HeapFault::HeapFault(uint64_t n) {
  isHit.store(false);
  countdown.store(n);
}
HeapFault::~HeapFault() { countdown.store(0); }
bool HeapFault::Hit() const { return isHit.load(); }
bool HeapFault::WasQuiet() const { return isHit.load() && wasQuiet.load(); }

namespace internal {

bool NoteAllocation(bool isQuiet) {
  if (countdown.load() != 0 && countdown.fetch_sub(1) == 1) {
    isHit.store(true);
    wasQuiet.store(isQuiet);
    return false;
  }
  return true;
}

void NoteBlock(size_t size) {
  allocations.fetch_add(1);
  liveBlocks.fetch_add(1);
  const int64_t bytes =
      liveBytes.fetch_add(static_cast<int64_t>(size)) + static_cast<int64_t>(size);
  if (bytes > peakBytes.load()) peakBytes.store(bytes);
}

void NoteRelease(size_t size) {
  liveBlocks.fetch_sub(1);
  liveBytes.fetch_sub(static_cast<int64_t>(size));
}

}  // namespace internal

}  // namespace k7mtest
