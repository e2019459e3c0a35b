#pragma once

#include <optional>

#include "boxes/tfhd_box.h"

namespace qiro::k7m::impl {

/// One sample of a run.
struct SampleInfoTrun {
  uint64_t timeStamp;  ///< Decode time, track time scale.
  uint32_t duration;
  uint32_t size;
  uint32_t flags;
  uint32_t compositionOffset;
  uint64_t dataOffset;  ///< From the begin of the stream.
};

/// Track run ('trun', ISO/IEC 14496-12 8.8.8), in 'traf': consecutive samples. Irregular: its flags
/// say which fields its records have. Only fields that are in the file take memory; everything else
/// about a sample is worked out when it is asked for.
class TrunBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("trun");

  static constexpr uint32_t kDataOffsetPresent = 0x000001;
  static constexpr uint32_t kFirstSampleFlagsPresent = 0x000004;
  static constexpr uint32_t kDurationPresent = 0x000100;
  static constexpr uint32_t kSizePresent = 0x000200;
  static constexpr uint32_t kFlagsPresent = 0x000400;
  static constexpr uint32_t kCompositionOffsetPresent = 0x000800;

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

  /// To be called before the payload is read. A run without a data offset of its own starts at
  /// `dataStart`, one with it at `base` plus that.
  void SetContext(uint64_t base, uint64_t dataStart, const SampleDefaults& defaults);
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;
  /// Gives the first sample its time; the others follow.
  void UpdateSampleTimeStamps(uint64_t start) { startTime_ = start; }

  uint32_t GetSampleCount() const { return sampleCount_; }
  /// All of these need at least one sample.
  uint64_t FirstTimeStamp() const { return startTime_; }
  uint64_t LastTimeStamp() const { return EndTime() - DurationOf(sampleCount_ - 1); }
  uint64_t EndTime() const { return startTime_ + totalDuration_; }
  /// Behind the last sample's bytes; where the run starts when it has no sample.
  uint64_t DataEnd() const { return dataStart_ + totalSize_; }

  SampleInfoTrun GetSample(uint32_t index) const;
  /// The sample behind `sample`, which has `index`.
  SampleInfoTrun GetNext(const SampleInfoTrun& sample, uint32_t index) const;
  /// The first sample at or after a decode time; none when the last one lies before it.
  std::optional<uint32_t> FindFirstAtOrAfter(uint64_t time) const;

 private:
  /// Where every kStretch-th sample but the first lies, counted from that.
  struct Place {
    uint64_t time;
    uint64_t offset;
  };
  static constexpr uint32_t kStretch = 1024;
  /// A field that the records do not have.
  static constexpr uint32_t kAbsent = 0xFFFFFFFF;

  void ReadRecords();
  void TakeRecords(const uint8_t* bytes, uint64_t count);
  uint32_t FieldOf(uint32_t slot, uint32_t index) const {
    return records_[size_t{index} * recordLength_ + slot];
  }
  uint32_t DurationOf(uint32_t index) const {
    return durationSlot_ == kAbsent ? defaults_.duration : FieldOf(durationSlot_, index);
  }
  uint32_t SizeOf(uint32_t index) const {
    return sizeSlot_ == kAbsent ? defaults_.size : FieldOf(sizeSlot_, index);
  }
  uint32_t FlagsOf(uint32_t index) const;
  SampleInfoTrun At(uint32_t index, const Place& place) const;
  Place PlaceOf(uint32_t index) const;
  Place StretchStart(uint32_t stretch) const {
    return stretch == 0 ? Place{0, 0} : places_[stretch - 1];
  }

  SampleDefaults defaults_{};
  uint64_t base_ = 0;
  uint64_t dataStart_ = 0;
  uint64_t startTime_ = 0;
  uint64_t totalDuration_ = 0;
  uint64_t totalSize_ = 0;
  int32_t dataOffset_ = 0;
  uint32_t firstSampleFlags_ = 0;
  uint32_t sampleCount_ = 0;
  uint32_t recordLength_ = 0;  ///< Fields in a record.
  uint32_t durationSlot_ = kAbsent;
  uint32_t sizeSlot_ = kAbsent;
  uint32_t flagsSlot_ = kAbsent;
  uint32_t compositionSlot_ = kAbsent;
  K7MVector<uint32_t> records_;
  K7MVector<Place> places_;
};

}  // namespace qiro::k7m::impl
