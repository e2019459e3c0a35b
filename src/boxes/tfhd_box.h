#pragma once

#include "boxes/full_box.h"
#include "boxes/movie_extends_boxes.h"
#include "boxes/track_run.h"

namespace qiro::k7m::impl {

/// What a 'tfhd' says.
struct TrackFragmentHeader {
  static constexpr uint32_t kBaseDataOffsetPresent = 0x000001;
  static constexpr uint32_t kDescriptionIndexPresent = 0x000002;
  static constexpr uint32_t kDurationPresent = 0x000008;
  static constexpr uint32_t kSizePresent = 0x000010;
  static constexpr uint32_t kFlagsPresent = 0x000020;
  static constexpr uint32_t kDefaultBaseIsMoof = 0x020000;
  /// An optional 32-bit field that is not given.
  static constexpr uint32_t kNotGiven = 0xFFFFFFFF;

  uint32_t flags = 0;
  uint32_t trackId = 0;
  uint64_t baseDataOffset = 0;
  uint32_t descriptionIndex = kNotGiven;
  SampleDefaults defaults{kNotGiven, kNotGiven, kNotGiven};

  bool Has(uint32_t flag) const { return (flags & flag) != 0; }
  /// Bytes of the fields behind version and flags.
  uint64_t FieldsSize() const {
    return sizeof(trackId) + sizeof(baseDataOffset) * Has(kBaseDataOffsetPresent) +
           sizeof(uint32_t) * (uint64_t{0} + Has(kDescriptionIndexPresent) + Has(kDurationPresent) +
                               Has(kSizePresent) + Has(kFlagsPresent));
  }
  /// Reads the fields behind version and flags, which are known. `Source` is a stream or a
  /// ByteReader.
  template <class Source>
  void ReadFields(Source& source) {
    const auto readIf = [&](uint32_t flag, uint32_t& field) {
      if (Has(flag)) {
        field = source.ReadDWORD();
      }
    };
    trackId = source.ReadDWORD();
    if (Has(kBaseDataOffsetPresent)) {
      baseDataOffset = source.ReadDDWORD();
    }
    readIf(kDescriptionIndexPresent, descriptionIndex);
    readIf(kDurationPresent, defaults.duration);
    readIf(kSizePresent, defaults.size);
    readIf(kFlagsPresent, defaults.flags);
  }
  /// Fields that are not given take the values of the movie box.
  void ApplyDefaults(const TrexBox& trex);
};

/// Track fragment header ('tfhd', ISO/IEC 14496-12 8.8.7), in 'traf'. Irregular: its flags say
/// which fields are there.
class TfhdBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("tfhd");

  using FullBox::FullBox;
  /// With a base data offset and a sample description index.
  TfhdBox(QiroK7MStream* stream, uint32_t trackId, uint64_t baseDataOffset,
          uint32_t descriptionIndex, const QiroK7MAllocatorCallBacks* allocator);

  void WriteExtensionBox() override;
  void AccountForPayload() override;
  void UpdateSDId(uint32_t index) { fields_.descriptionIndex = index; }
  void IncrementBaseDataOffset(uint64_t delta) { fields_.baseDataOffset += delta; }
  /// Deliberately without a look at the box's end: fields are read from whatever follows.
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  uint32_t GetTrackId() const { return fields_.trackId; }
  /// The base data offset; 0 when it is not given.
  uint64_t GetMdatOffset() const { return fields_.baseDataOffset; }
  uint32_t GetSDId() const { return fields_.descriptionIndex; }
  const TrackFragmentHeader& GetFields() const { return fields_; }

  /// Fields that are not given take the values of the movie box.
  void ApplyDefaults(const TrexBox& trex) { fields_.ApplyDefaults(trex); }

 private:
  TrackFragmentHeader fields_;
};

}  // namespace qiro::k7m::impl
