#pragma once

#include "base/record_table.h"
#include "boxes/table_box.h"
#include "boxes/table_iterators.h"

namespace qiro::k7m::impl {

/// Where sync samples are looked up.
class ISyncSampleBox {
 public:
  virtual ~ISyncSampleBox() = default;

  virtual Iterator<SyncSampleEntry> FindBySampleNumber(uint32_t number) const = 0;
};

/// Sync samples ('stss', ISO/IEC 14496-12 8.6.2), in 'stbl'; optional.
class StssBox final : public TableBox, public ISyncSampleBox {
 public:
  static constexpr uint32_t kType = FourCc("stss");
  static constexpr uint64_t kEntrySize = 4;

  StssBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : TableBox(stream, header, allocator),
        entries_(GetAllocator()),
        highestSoFar_(K7MAllocator<uint32_t>(allocator)) {}

  /// Error 31 above 100000000 samples.
  StssBox(QiroK7MStream* stream, uint32_t maxSampleCount,
          const QiroK7MAllocatorCallBacks* allocator);

  void AddSyncSample(uint32_t sampleNumber);
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  /// From the first entry, in table order, whose number is at or after the given one.
  Iterator<SyncSampleEntry> FindBySampleNumber(uint32_t number) const override;

 private:
  RecordTable<SyncSampleEntry> entries_;
  /// For a table out of order: the highest number up to each entry. Empty for an ordered one.
  K7MVector<uint32_t> highestSoFar_;
};

}  // namespace qiro::k7m::impl
