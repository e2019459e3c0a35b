#pragma once

#include "base/record_table.h"
#include "boxes/run_length.h"
#include "boxes/table_box.h"
#include "boxes/table_iterators.h"

namespace qiro::k7m::impl {

/// Composition offsets ('ctts', ISO/IEC 14496-12 8.6.1.3), in 'stbl'; optional.
class CttsBox final : public TableBox {
 public:
  static constexpr uint32_t kType = FourCc("ctts");
  static constexpr uint64_t kEntrySize = 8;

  CttsBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : TableBox(stream, header, allocator), runs_(GetAllocator()) {}

  /// Error 9 above 100000000 samples.
  CttsBox(QiroK7MStream* stream, uint32_t maxSampleCount,
          const QiroK7MAllocatorCallBacks* allocator);

  struct Progress {
    TableBox::Progress table;
    PendingRun pending;
  };
  Progress GetProgress() const { return {TableBox::GetProgress(), pending_}; }
  void ReturnTo(const Progress& progress) {
    TableBox::ReturnTo(progress.table);
    pending_ = progress.pending;
  }

  void AddCompositionOffset(uint32_t offset);
  /// Writes the pending run behind the entries, where later samples overwrite it.
  void UpdateExtensionBox() override;
  /// Error 30 when the sample numbers wrap.
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  /// From the given sample on; no entries when the table does not reach it.
  CttsIterator FindBySampleNumber(uint32_t number) const;

 private:
  RecordTable<CompactCttsEntry> runs_;
  uint32_t afterLastSample_ = 1;  ///< The number behind the last sample of `runs_`.

  PendingRun pending_;
};

}  // namespace qiro::k7m::impl
