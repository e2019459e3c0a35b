#pragma once

#include "boxes/full_box.h"
#include "boxes/table_iterators.h"

namespace qiro::k7m::impl {

/// Sample dependencies ('sdtp', ISO/IEC 14496-12 8.6.4), in 'stbl'; optional. One byte a sample;
/// how many there are is told by the 'stsz'.
class SdtpBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("sdtp");

  SdtpBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : FullBox(stream, header, allocator), entries_(K7MAllocator<uint8_t>(allocator)) {}

  /// Error 9 above 100000000 samples.
  SdtpBox(QiroK7MStream* stream, uint32_t maxSampleCount,
          const QiroK7MAllocatorCallBacks* allocator);

  /// `index` counts from 0. The table grows up to it; error 31 past 100000000 entries.
  void SetEntry(uint32_t index, uint8_t value);
  /// 0 past the last entry.
  uint8_t GetEntry(uint32_t index) const;
  /// Writes all bytes; UpdateExtensionBox() those that were not written yet.
  void WriteExtensionBox() override;
  void UpdateExtensionBox() override;
  /// To be called before the payload is read.
  void SetCount(uint32_t count) { count_ = count; }
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override { sink.Bytes("entries", entries_); }

  /// From the given sample, counted from 1, on.
  Iterator<uint8_t> FindBySampleNumber(uint32_t number) const;

 private:
  void WriteFrom(size_t index);

  uint32_t count_ = 0;
  size_t unwrittenFrom_ = 0;
  K7MVector<uint8_t> entries_;
};

}  // namespace qiro::k7m::impl
