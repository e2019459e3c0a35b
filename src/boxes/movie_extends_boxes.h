#pragma once

#include "boxes/field_box.h"

namespace qiro::k7m::impl {

/// Movie extends header ('mehd', ISO/IEC 14496-12 8.8.2), in 'mvex': the length of the presentation
/// with all fragments. Irregular: only version 1 has the 64-bit layout.
class MehdBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("mehd");

  using FullBox::FullBox;
  /// Always version 1.
  MehdBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator);

  void ReadExtensionPayloadData() override;
  void WriteExtensionBox() override;
  void UpdateExtensionBox() override { WriteExtensionBox(); }
  void Describe(FieldSink& sink) override { sink.Number("fragment_duration", duration_); }

  /// Movie time scale.
  uint64_t GetDuration() const { return duration_; }
  void SetDuration(uint64_t duration) { duration_ = duration; }

 private:
  uint64_t duration_ = 0;
};

/// Track extends ('trex', ISO/IEC 14496-12 8.8.3), in 'mvex': what a track's fragments take where
/// they say nothing themselves.
class TrexBox final : public FieldBox<TrexBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("trex");

  using FieldBox::FieldBox;
  /// Every default is 1, deliberately: fragments that are written say everything themselves.
  TrexBox(QiroK7MStream* stream, uint32_t trackId, const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    walk.U32("track_ID", trackId_);
    walk.U32("default_sample_description_index", descriptionIndex_);
    walk.U32("default_sample_duration", sampleDuration_);
    walk.U32("default_sample_size", sampleSize_);
    walk.U32("default_sample_flags", sampleFlags_);
  }

  uint32_t GetTrackId() const { return trackId_; }
  uint32_t GetSDId() const { return descriptionIndex_; }
  uint32_t GetSampleDuration() const { return sampleDuration_; }
  uint32_t GetSampleSize() const { return sampleSize_; }
  uint32_t GetSampleFlags() const { return sampleFlags_; }

 private:
  uint32_t trackId_ = 0;
  uint32_t descriptionIndex_ = 0;
  uint32_t sampleDuration_ = 0;
  uint32_t sampleSize_ = 0;
  uint32_t sampleFlags_ = 0;
};

/// Movie extends ('mvex', ISO/IEC 14496-12 8.8.1), in 'moov': says that the document is fragmented.
class MvexBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("mvex");

  MvexBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : Box(stream, header, allocator), byTrackId_(K7MAllocator<TrexBox*>(allocator)) {}
  /// Builds the 'mehd', duration 0.
  MvexBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;

  /// Deliberately true whatever the children are.
  bool ValidateHierarchy() override { return true; }
  void CompleteReadChildBoxes(RootBox* root, bool validate) override;

  /// The first 'trex' of a track; null when there is none.
  TrexBox* GetDefaultsForTrack(uint32_t trackId) const;
  /// Does nothing without an 'mehd'.
  void SetDuration(uint64_t duration);
  /// Writes the 'mehd' in its place and touches no other box.
  void UpdateDuration();

 private:
  /// In the order of the track ids; of several for one track only the first.
  K7MVector<TrexBox*> byTrackId_;
  MehdBox* mehd_ = nullptr;
};

}  // namespace qiro::k7m::impl
