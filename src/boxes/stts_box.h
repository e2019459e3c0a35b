#pragma once

#include "base/record_table.h"
#include "boxes/run_length.h"
#include "boxes/table_box.h"
#include "boxes/table_iterators.h"

namespace qiro::k7m::impl {

/// The runs of an 'stts', each with the start time and first sample number that the file leaves
/// implicit. Deliberately on the default heap, unlike all other tables.
class CompactSttsArray {
 public:
  static constexpr uint64_t kEntrySize = 8;

  /// Reads `count` entries at the stream's position.
  void Read(QiroK7MStream& stream, uint64_t count);
  const RecordTable<CompactSttsEntry>& Runs() const { return runs_; }

  /// The samples whose decode times lie in [begin, end], both included. Runs of delta 0 at the
  /// begin are stepped over. Where `begin` lies behind the last sample of a run but before the next
  /// run, the run's last sample is the first.
  SttsIterator FindByDecodeTime(uint64_t begin, uint64_t end) const;
  /// Every sample.
  SttsIterator All() const;

 private:
  RecordTable<CompactSttsEntry> runs_{nullptr};
  /// Runs up to and with the last one that has samples.
  size_t usedRuns_ = 0;
};

/// Decode times ('stts', ISO/IEC 14496-12 8.6.1.2), in 'stbl'. Irregular like all sample tables:
/// read from one block into an array of runs.
class SttsBox final : public TableBox {
 public:
  static constexpr uint32_t kType = FourCc("stts");
  static constexpr uint64_t kEntrySize = CompactSttsArray::kEntrySize;

  using TableBox::TableBox;
  /// `lastSampleDuration` is what the last sample lasts. Error 9 above 100000000 samples.
  SttsBox(QiroK7MStream* stream, uint32_t maxSampleCount, uint32_t lastSampleDuration,
          const QiroK7MAllocatorCallBacks* allocator);

  struct Progress {
    TableBox::Progress table;
    PendingRun pending;
    uint64_t previousTime;
    bool hasSample;
  };
  Progress GetProgress() const {
    return {TableBox::GetProgress(), pending_, previousTime_, hasSample_};
  }
  void ReturnTo(const Progress& progress);

  /// Each sample is counted only when the next one arrives.
  void AddSample(uint64_t decodeTime);
  /// Writes the pending run and the last sample behind the entries, where later samples overwrite
  /// them. A lone sample deliberately lasts 1 tick, not the duration for the last sample.
  void UpdateExtensionBox() override;
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  SttsIterator FindByDecodeTime(uint64_t begin, uint64_t end) const {
    return runs_.FindByDecodeTime(begin, end);
  }
  SttsIterator AllSamples() const { return runs_.All(); }

 private:
  CompactSttsArray runs_;

  uint32_t lastSampleDuration_ = 0;
  uint64_t previousTime_ = 0;
  PendingRun pending_;
  bool hasSample_ = false;
};

}  // namespace qiro::k7m::impl
