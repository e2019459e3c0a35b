#pragma once

#include "boxes/edit_boxes.h"
#include "boxes/field_box.h"
#include "boxes/movie_boxes.h"
#include "boxes/track_setup.h"

namespace qiro::k7m::impl {

class IChunkOffsetBox;
class CttsBox;
class MdiaBox;
class SdtpBox;
class StblBox;
class StscBox;
class StsdBox;
class StssBox;
class StszBox;
class SttsBox;

/// Track header ('tkhd', ISO/IEC 14496-12 8.3.2), in 'trak'. Any version but 0 has the 64-bit
/// layout.
class TkhdBox final : public FieldBox<TkhdBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("tkhd");
  static constexpr uint64_t kPayloadSizeV0 = 80;
  static constexpr uint64_t kPayloadSizeV1 = 92;

  using FieldBox::FieldBox;
  TkhdBox(QiroK7MStream* stream, uint8_t version, uint32_t flags, const TrackSetup& setup,
          const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    walk.Date("creation_time", creationTime_);
    walk.Date("modification_time", modificationTime_);
    walk.U32("track_ID", trackId_);
    walk.Reserved(4);
    walk.Versioned("duration", duration_);
    walk.Reserved(8);
    walk.U16("layer", layer_);
    walk.U16("alternate_group", alternateGroup_);
    walk.Fixed88("volume", volume_);
    walk.Reserved(2);
    walk.U32s("matrix", matrix_);
    walk.Fixed1616("width", width_);
    walk.Fixed1616("height", height_);
  }
  /// Always writes the unity matrix, whatever was read.
  void WriteExtensionBox() override {
    matrix_ = kUnityMatrix;
    FieldBox::WriteExtensionBox();
  }
  /// Rewrites the duration.
  void UpdateExtensionBox() override;

  /// In movie time scale.
  void UpdateTrackDuration(uint64_t duration) { duration_ = duration; }
  const QiroK7MDateTime& GetCreationTime() const { return creationTime_; }
  const QiroK7MDateTime& GetModificationTime() const { return modificationTime_; }
  uint32_t GetTrackID() const { return trackId_; }
  /// In movie time scale.
  uint64_t GetDuration() const { return duration_; }
  float GetVolume() const { return volume_; }
  float GetWidth() const { return width_; }
  float GetHeight() const { return height_; }

 private:
  QiroK7MDateTime creationTime_{};
  QiroK7MDateTime modificationTime_{};
  uint32_t trackId_ = 0;
  uint64_t duration_ = 0;
  uint16_t layer_ = 0;
  uint16_t alternateGroup_ = 0;
  float volume_ = 0;
  std::array<uint32_t, 9> matrix_ = kUnityMatrix;
  float width_ = 0;
  float height_ = 0;
};

/// Hint references ('hint', ISO/IEC 14496-12 8.3.3), in 'tref': the tracks that a hint track
/// serves.
class HintBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("hint");

  HintBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : Box(stream, header, allocator), trackIds_(K7MAllocator<uint32_t>(allocator)) {}
  HintBox(QiroK7MStream* stream, std::span<const uint32_t> trackIds,
          const QiroK7MAllocatorCallBacks* allocator);

  /// Warning 3073, and no ids, when the payload's length is not a multiple of 4.
  void ReadExtensionPayloadData() override;
  void WriteExtensionBox() override;
  void Describe(FieldSink& sink) override;

  bool ValidateHintRefTrackID(uint32_t trackId) const;

 private:
  K7MVector<uint32_t> trackIds_;
};

/// Track references ('tref', ISO/IEC 14496-12 8.3.3), in 'trak'. Only 'hint' references are known.
class TrefBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("tref");

  using Box::Box;
  TrefBox(QiroK7MStream* stream, std::span<const uint32_t> trackIds,
          const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;
  /// False without a 'hint'.
  bool ValidateHintRefTrackID(uint32_t trackId) const {
    return hint_ != nullptr && hint_->ValidateHintRefTrackID(trackId);
  }

 private:
  HintBox* hint_ = nullptr;
};

/// One track ('trak', ISO/IEC 14496-12 8.3.1), in 'moov'. Every getter gives null when a link of
/// the chain to what it names is missing.
class TrakBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("trak");

  using Box::Box;
  /// Builds the whole subtree: 'tkhd', 'tref' for a hint track, 'mdia', 'edts'.
  TrakBox(QiroK7MStream* stream, const TrackSetup& setup,
          const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;
  std::span<const MandatoryBox> GetMandatoryBoxes() const override;
  void CompleteReadChildBoxes(RootBox* root, bool validate) override;

  TkhdBox* GetTrackHeaderBox() const { return tkhd_; }
  TrefBox* GetTrackRefBox() const { return tref_; }
  MdiaBox* GetMediaBox() const { return mdia_; }
  EdtsBox* GetEdtsBox() const { return edts_; }
  /// Handler type; 0 as long as no 'hdlr' was read.
  uint32_t GetMediaType() const { return mediaType_; }
  /// 0 without a 'tkhd'.
  uint64_t GetDurationInMovieTS() const { return tkhd_ == nullptr ? 0 : tkhd_->GetDuration(); }

  ElstBox* GetElstBox() const { return edts_ == nullptr ? nullptr : edts_->GetElstBox(); }
  StblBox* GetStblBox() const;
  StsdBox* GetStsdBox() const;
  SttsBox* GetSttsBox() const;
  CttsBox* GetCttsBox() const;
  StscBox* GetStscBox() const;
  StszBox* GetStszBox() const;
  StssBox* GetStssBox() const;
  SdtpBox* GetSdtpBox() const;
  /// The 'co64' if there is one, else the 'stco'.
  IChunkOffsetBox* GetChunkOffBox() const;

 private:
  void TakeMediaType();

  TkhdBox* tkhd_ = nullptr;
  TrefBox* tref_ = nullptr;
  MdiaBox* mdia_ = nullptr;
  EdtsBox* edts_ = nullptr;
  uint32_t mediaType_ = 0;
};

}  // namespace qiro::k7m::impl
