#pragma once

#include "boxes/full_box.h"
#include "boxes/movie_extends_boxes.h"

namespace qiro::k7m::impl {

/// What the samples of a track fragment are when their run does not say it.
struct SampleDefaults {
  uint32_t duration;
  uint32_t size;
  uint32_t flags;
};

/// Track fragment header ('tfhd', ISO/IEC 14496-12 8.8.7), in 'traf'. Irregular: its flags say
/// which fields are there.
class TfhdBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("tfhd");

  static constexpr uint32_t kBaseDataOffsetPresent = 0x000001;
  static constexpr uint32_t kDescriptionIndexPresent = 0x000002;
  static constexpr uint32_t kDurationPresent = 0x000008;
  static constexpr uint32_t kSizePresent = 0x000010;
  static constexpr uint32_t kFlagsPresent = 0x000020;
  static constexpr uint32_t kDefaultBaseIsMoof = 0x020000;
  /// An optional 32-bit field that is not given.
  static constexpr uint32_t kNotGiven = 0xFFFFFFFF;

  using FullBox::FullBox;
  /// With a base data offset and a sample description index.
  TfhdBox(QiroK7MStream* stream, uint32_t trackId, uint64_t baseDataOffset,
          uint32_t descriptionIndex, const QiroK7MAllocatorCallBacks* allocator);

  void WriteExtensionBox() override;
  void AccountForPayload() override;
  void UpdateSDId(uint32_t index) { descriptionIndex_ = index; }
  void IncrementBaseDataOffset(uint64_t delta) { baseDataOffset_ += delta; }
  /// Deliberately without a look at the box's end: fields are read from whatever follows.
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  uint32_t GetTrackId() const { return trackId_; }
  bool HasMdatOffset() const { return (GetFlags() & kBaseDataOffsetPresent) != 0; }
  /// The base data offset; 0 when it is not given.
  uint64_t GetMdatOffset() const { return baseDataOffset_; }
  uint32_t GetSDId() const { return descriptionIndex_; }
  SampleDefaults GetDefaults() const { return defaults_; }

  /// Fields that are not given take the values of the movie box.
  void ApplyDefaults(const TrexBox& trex);

 private:
  uint32_t trackId_ = 0;
  uint64_t baseDataOffset_ = 0;
  uint32_t descriptionIndex_ = kNotGiven;
  SampleDefaults defaults_{kNotGiven, kNotGiven, kNotGiven};
};

}  // namespace qiro::k7m::impl
