#pragma once

#include "base/record_table.h"
#include "boxes/table_box.h"
#include "boxes/table_iterators.h"

namespace qiro::k7m::impl {

/// Where sample sizes are looked up.
class ISampleSizeBox {
 public:
  virtual ~ISampleSizeBox() = default;

  virtual SampleSizeIterator FindBySampleNumber(uint32_t number) const = 0;
  virtual uint32_t GetSampleCount() const = 0;
};

/// Sample sizes ('stsz', ISO/IEC 14496-12 8.7.3.2), in 'stbl'.
class StszBox final : public TableBox, public ISampleSizeBox {
 public:
  static constexpr uint32_t kType = FourCc("stsz");
  static constexpr uint64_t kEntrySize = 4;

  StszBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : TableBox(stream, header, allocator),
        entries_(GetAllocator()),
        sizeBeforeStretch_(K7MAllocator<uint64_t>(allocator)) {}

  /// Error 31 above 100000000 samples.
  StszBox(QiroK7MStream* stream, uint32_t maxSampleCount,
          const QiroK7MAllocatorCallBacks* allocator);

  void AddSampleSize(uint32_t size);
  void WriteExtensionBox() override;
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  /// Read, or added so far.
  uint32_t GetSampleCount() const override {
    return WasParsed() ? sampleCount_ : GetProgress().writtenCount;
  }
  /// With a constant size the number is not used: every sample has the same size, and as many sizes
  /// follow as the table has samples in all.
  SampleSizeIterator FindBySampleNumber(uint32_t number) const override;
  /// Bytes of `count` samples from the given one on, all of which are in the table.
  uint64_t SizeOfSamples(uint32_t number, uint32_t count) const;

 private:
  /// Sums are kept for every stretch of this many samples, so that a sum never walks the whole
  /// table.
  static constexpr uint32_t kStretch = 1024;

  uint64_t Sum(uint64_t begin, uint64_t end) const;
  void SumStretches() const;
  uint64_t SizeBefore(uint64_t index) const;

  SampleSizeEntry constant_;
  uint32_t sampleCount_ = 0;
  RecordTable<SampleSizeEntry> entries_;
  /// Made when it is needed first: most documents have only chunks that are shorter.
  mutable K7MVector<uint64_t> sizeBeforeStretch_;
};

}  // namespace qiro::k7m::impl
