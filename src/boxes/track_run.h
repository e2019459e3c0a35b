#pragma once

#include <cstdint>
#include <optional>

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

/// What the samples of a track fragment are when their run does not say it.
struct SampleDefaults {
  uint32_t duration;
  uint32_t size;
  uint32_t flags;
};

/// What a 'trun' says before its records.
struct RunHeader {
  static constexpr uint32_t kDataOffsetPresent = 0x000001;
  static constexpr uint32_t kFirstSampleFlagsPresent = 0x000004;
  static constexpr uint32_t kDurationPresent = 0x000100;
  static constexpr uint32_t kSizePresent = 0x000200;
  static constexpr uint32_t kFlagsPresent = 0x000400;
  static constexpr uint32_t kCompositionOffsetPresent = 0x000800;

  uint32_t flags = 0;
  uint32_t sampleCount = 0;
  int32_t dataOffset = 0;
  uint32_t firstSampleFlags = 0;

  bool Has(uint32_t flag) const { return (flags & flag) != 0; }
  /// Bytes of the fields behind version and flags.
  uint64_t FieldsSize() const {
    return sizeof(uint32_t) *
           (uint64_t{1} + Has(kDataOffsetPresent) + Has(kFirstSampleFlagsPresent));
  }
  /// Fields of 32 bits in each record.
  uint32_t RecordLength() const {
    return uint32_t{0} + Has(kDurationPresent) + Has(kSizePresent) + Has(kFlagsPresent) +
           Has(kCompositionOffsetPresent);
  }
  /// Reads the fields behind version and flags, which are known. `Source` is a stream or a
  /// ByteReader.
  template <class Source>
  void ReadFields(Source& source) {
    sampleCount = source.ReadDWORD();
    if (Has(kDataOffsetPresent)) {
      dataOffset = static_cast<int32_t>(source.ReadDWORD());
    }
    if (Has(kFirstSampleFlagsPresent)) {
      firstSampleFlags = source.ReadDWORD();
    }
  }
};

/// The samples of a run. Only fields that are in the file take memory, which belongs to somebody
/// else; everything else about a sample is worked out when it is asked for.
class TrackRun {
 public:
  /// Where every kStretch-th sample but the first lies, counted from that.
  struct Place {
    uint64_t time;
    uint64_t offset;
  };
  static constexpr uint32_t kStretch = 1024;
  /// How many places a run keeps.
  static uint64_t PlaceCount(const RunHeader& header) {
    return header.RecordLength() == 0 || header.sampleCount == 0
               ? 0
               : (header.sampleCount - 1) / kStretch;
  }

  TrackRun() = default;
  /// A run without a data offset of its own starts at `dataStart`, one with it at `base` plus that.
  TrackRun(const RunHeader& header, uint64_t base, uint64_t dataStart,
           const SampleDefaults& defaults);
  /// Needed when the records have fields: gives the records, and room for the places.
  void SetRecords(const uint32_t* records, Place* places);
  /// Gives the first sample its time; the others follow.
  void UpdateSampleTimeStamps(uint64_t start) { startTime_ = start; }

  uint32_t GetSampleCount() const { return sampleCount_; }
  /// All of these need at least one sample.
  uint64_t FirstTimeStamp() const { return startTime_; }
  uint64_t LastTimeStamp() const { return EndTime() - DurationOf(sampleCount_ - 1); }
  uint64_t EndTime() const { return startTime_ + totalDuration_; }
  /// Behind the last sample's bytes; where the run starts when it has no sample.
  uint64_t DataEnd() const { return dataStart_ + totalSize_; }

  SampleInfoTrun GetSample(uint32_t index) const { return At(index, PlaceOf(index)); }
  /// The sample behind `sample`, which has `index`.
  SampleInfoTrun GetNext(const SampleInfoTrun& sample, uint32_t index) const {
    return At(index + 1, {sample.timeStamp - startTime_ + sample.duration,
                          sample.dataOffset - dataStart_ + sample.size});
  }
  /// The first sample at or after a decode time; none when the last one lies before it.
  std::optional<uint32_t> FindFirstAtOrAfter(uint64_t time) const;

 protected:
  /// Writing form: the run grows by a sample; the records may have moved.
  void Count(const SampleInfoTrun& sample, const uint32_t* records);
  void Lengthen(uint64_t duration) { totalDuration_ += duration; }
  uint64_t DataStart() const { return dataStart_; }

 private:
  /// A field that the records do not have.
  static constexpr uint8_t kAbsent = 0xFF;

  uint32_t FieldOf(uint8_t slot, uint32_t index) const {
    return records_[size_t{index} * recordLength_ + slot];
  }
  uint32_t DurationOf(uint32_t index) const {
    return durationSlot_ == kAbsent ? defaults_.duration : FieldOf(durationSlot_, index);
  }
  uint32_t SizeOf(uint32_t index) const {
    return sizeSlot_ == kAbsent ? defaults_.size : FieldOf(sizeSlot_, index);
  }
  uint32_t FlagsOf(uint32_t index) const {
    if (flagsSlot_ != kAbsent) {
      return FieldOf(flagsSlot_, index);
    }
    return index == 0 ? firstSampleFlags_ : defaults_.flags;
  }
  SampleInfoTrun At(uint32_t index, const Place& place) const {
    return {startTime_ + place.time,
            DurationOf(index),
            SizeOf(index),
            FlagsOf(index),
            compositionSlot_ == kAbsent ? 0 : FieldOf(compositionSlot_, index),
            dataStart_ + place.offset};
  }
  Place PlaceOf(uint32_t index) const;
  Place StretchStart(uint32_t stretch) const {
    return stretch == 0 ? Place{0, 0} : places_[stretch - 1];
  }

  uint64_t dataStart_ = 0;
  uint64_t startTime_ = 0;
  uint64_t totalDuration_ = 0;
  uint64_t totalSize_ = 0;
  const uint32_t* records_ = nullptr;
  const Place* places_ = nullptr;
  SampleDefaults defaults_{};
  uint32_t firstSampleFlags_ = 0;
  uint32_t sampleCount_ = 0;
  uint8_t recordLength_ = 0;  ///< Fields in a record.
  uint8_t durationSlot_ = kAbsent;
  uint8_t sizeSlot_ = kAbsent;
  uint8_t flagsSlot_ = kAbsent;
  uint8_t compositionSlot_ = kAbsent;
};

}  // namespace qiro::k7m::impl
