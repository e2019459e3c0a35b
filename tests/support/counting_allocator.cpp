#include "counting_allocator.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace k7mtest {

CountingAllocator::~CountingAllocator() {
  for (const auto& [block, size] : blocks_) std::free(block);
}

QiroK7MAllocatorCallBacks CountingAllocator::Record() {
  QiroK7MAllocatorCallBacks record;
  record.clientData = this;
  record.allocate = &CountingAllocator::Allocate;
  record.release = &CountingAllocator::Release;
  return record;
}

void* CountingAllocator::Allocate(void* clientData, uint64_t byteCount) {
  auto& self = *static_cast<CountingAllocator*>(clientData);
  self.largestRequest_ = std::max(self.largestRequest_, byteCount);
  if (self.failCountdown_ != 0 && --self.failCountdown_ == 0) {
    self.faultHit_ = true;
    throw std::bad_alloc();
  }
  void* block = std::malloc(byteCount == 0 ? 1 : byteCount);
  if (block == nullptr) throw std::bad_alloc();
  self.blocks_.emplace(block, byteCount);
  ++self.allocations_;
  self.liveBytes_ += byteCount;
  self.peakBytes_ = std::max(self.peakBytes_, self.liveBytes_);
  return block;
}

void CountingAllocator::Release(void* clientData, void* block) {
  auto& self = *static_cast<CountingAllocator*>(clientData);
  const auto found = self.blocks_.find(block);
  if (found == self.blocks_.end()) {
    ++self.badReleases_;  // Left alone: freeing it would end the program before the test reports.
    return;
  }
  self.liveBytes_ -= found->second;
  self.blocks_.erase(found);
  ++self.releases_;
  std::free(block);
}

}  // namespace k7mtest
