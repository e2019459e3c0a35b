#pragma once

#include "base/record_table.h"
#include "boxes/full_box.h"
#include "boxes/track_run.h"

namespace qiro::k7m::impl {

/// Track run ('trun', ISO/IEC 14496-12 8.8.8), in 'traf': consecutive samples. Irregular: its flags
/// say which fields its records have.
class TrunBox final : public FullBox, public TrackRun {
 public:
  static constexpr uint32_t kType = FourCc("trun");

  TrunBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator);

  /// An empty run whose first sample will lie at `dataStart`; its offset is written relative to
  /// `base`. Every sample has all four fields.
  TrunBox(QiroK7MStream* stream, uint64_t base, uint64_t dataStart, uint64_t startTime,
          const QiroK7MAllocatorCallBacks* allocator);

  /// Writing form. The sample's time and place follow from those before it.
  void AddSample(const SampleInfoTrun& sample);
  void UpdateLastSample(uint32_t duration);
  /// Takes the size of what was added. To be called once, before the run becomes a child.
  void AccountForPayload() override;
  /// Error 19 when the data offset does not fit 32 bits.
  void WriteExtensionBox() override;
  /// From the begin of the stream to the duration of the last sample.
  uint64_t LastSampleDurationOffset() const;
  /// Bytes of the payload behind version and flags.
  static uint64_t GetTrunSize(uint32_t flags, uint32_t sampleCount);

  /// To be called before the payload is read; see TrackRun.
  void SetContext(uint64_t base, uint64_t dataStart, const SampleDefaults& defaults);
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

 private:
  void ReadRecords();

  uint64_t base_ = 0;
  uint64_t defaultDataStart_ = 0;
  SampleDefaults sampleDefaults_{};
  RunHeader header_;
  RecordTable<uint32_t> records_;
  RecordTable<Place> places_;
};

}  // namespace qiro::k7m::impl
