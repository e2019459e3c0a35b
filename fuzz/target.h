/// @file target.h
/// What the fuzz targets share: where their choices come from, and what memory they may use.
#ifndef K7M_FUZZ_TARGET_H
#define K7M_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>

#include "support/bytes.h"
#include "support/counting_allocator.h"

/// A broken expectation of gtest ends the program at once.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace k7mfuzz {

using k7mtest::Bytes;

/// Choices, taken from the input's last byte backwards; 0 when all are used. A target whose input
/// is a file reads all of it as that, these bytes too, so that an input can be looked at with any
/// tool.
class Choices {
 public:
  Choices(const uint8_t* data, size_t size) : data_(data), left_(size) {}
  bool IsEmpty() const { return left_ == 0; }
  uint8_t Byte() { return left_ == 0 ? 0 : data_[--left_]; }
  /// A number of up to `bits` bits, small ones as likely as large ones.
  uint64_t Number(unsigned bits = 64);
  bool Chance() { return (Byte() & 1) != 0; }

 private:
  const uint8_t* data_;
  size_t left_;
};

Bytes BytesOf(const uint8_t* data, size_t size);

/// Watches memory from its construction on.
class MemoryBound {
 public:
  explicit MemoryBound(const Bytes& file);
  /// The peaks of both heaps together are at most 64 MiB and 48 times the bytes that were read. The
  /// buffer of a chunk map ('stsc'), which is as large as its count says but touched only as far as
  /// bytes arrive, does not count.
  void Check(const k7mtest::CountingAllocator& memory, uint64_t bytesRead) const;

 private:
  int64_t before_;
  uint64_t chunkMapBuffer_;
};

}  // namespace k7mfuzz

#endif
