#include "target.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/heap_watch.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  GTEST_FLAG_SET(break_on_failure, true);
  return 0;
}

/// A file may ask for more than there is: that is an ordinary error and not the end of the program.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace k7mfuzz {
namespace {

/// The largest buffer that a chunk map anywhere in the file asks for, in either form of its header.
uint64_t LargestChunkMapBuffer(const Bytes& file) {
  uint64_t largest = 0;
  for (size_t i = 0; i + 4 <= file.Size(); ++i) {
    if (file.NumberAt(i) != k7mtest::Code("stsc")) continue;
    for (const size_t count : {i + 8, i + 16, i + 20}) {
      if (count + 4 > file.Size()) continue;
      largest = std::max(largest, file.NumberAt(count) * 12 & 0xFFFFFFFF);
    }
  }
  return largest;
}

}  // namespace

uint64_t Choices::Number(unsigned bits) {
  const unsigned width = Byte() % (bits + 1);
  uint64_t value = 0;
  for (unsigned i = 0; i < width; i += 8) value = value << 8 | Byte();
  return width == 0 ? 0 : value & (UINT64_MAX >> (64 - width));
}

Bytes BytesOf(const uint8_t* data, size_t size) {
  return Bytes(std::vector<uint8_t>(data, data + size));
}

MemoryBound::MemoryBound(const Bytes& file)
    : before_(k7mtest::CountHeap().liveBytes), chunkMapBuffer_(LargestChunkMapBuffer(file)) {
  k7mtest::ResetHeapPeak();
}

void MemoryBound::Check(const k7mtest::CountingAllocator& memory, uint64_t bytesRead) const {
  const auto heap = static_cast<uint64_t>(k7mtest::CountHeap().peakBytes - before_);
  EXPECT_LE(heap + memory.PeakBytes(),
            (uint64_t{64} << 20) + 48 * bytesRead + chunkMapBuffer_ + chunkMapBuffer_ / 8);
}

}  // namespace k7mfuzz
