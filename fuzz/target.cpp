#include "target.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "support/heap_watch.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  GTEST_FLAG_SET(break_on_failure, true);
  // libFuzzer keeps the input of an abort but does not know of a breakpoint.
  std::signal(SIGTRAP, [](int) { std::abort(); });
  return 0;
}

// The name is the sanitizer's.
#ifdef __clang__
#pragma clang diagnostic ignored "-Wreserved-identifier"
#endif
/// A file may ask for more memory than there is: an ordinary error and not the end of the program.
/// Blocks that are large are refused, because the sanitizer would touch all of them.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=128:quarantine_size_mb=16";
}

namespace k7mfuzz {
namespace {

/// The largest buffer that a chunk map anywhere in the file asks for, in either form of its header.
uint64_t LargestChunkMapBuffer(const Bytes& file) {
  static constexpr std::string_view kType = "stsc";
  uint64_t largest = 0;
  for (auto found = file.begin();; ++found) {
    found = std::search(found, file.end(), kType.begin(), kType.end());
    if (found == file.end()) return largest;
    const auto offset = static_cast<size_t>(found - file.begin());
    for (const size_t count : {offset + 8, offset + 16, offset + 20}) {
      if (count + 4 > file.Size()) continue;
      largest = std::max(largest, file.NumberAt(count) * 12 & 0xFFFFFFFF);
    }
  }
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
