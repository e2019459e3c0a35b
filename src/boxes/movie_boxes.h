#pragma once

#include <array>

#include "boxes/field_box.h"
#include "k7m/reader.h"

namespace qiro::k7m::impl {

class MvexBox;
class TrakBox;

/// The matrix that shows a picture as it is stored (ISO/IEC 14496-12 6.2.2).
inline constexpr std::array<uint32_t, 9> kUnityMatrix = {0x00010000, 0, 0, 0,         0x00010000,
                                                         0,          0, 0, 0x40000000};

/// Movie header ('mvhd', ISO/IEC 14496-12 8.2.2), in 'moov'. Any version but 0 has the 64-bit
/// layout.
class MvhdBox final : public FieldBox<MvhdBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("mvhd");
  static constexpr uint64_t kPayloadSizeV0 = 96;
  static constexpr uint64_t kPayloadSizeV1 = 108;

  using FieldBox::FieldBox;
  MvhdBox(QiroK7MStream* stream, uint8_t version, uint32_t flags, const QiroK7MDocInfo& info,
          const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    walk.Date("creation_time", creationTime_);
    walk.Date("modification_time", modificationTime_);
    walk.U32("timescale", timeScale_);
    walk.Versioned("duration", duration_);
    walk.Fixed1616("rate", playRate_);
    walk.Fixed88("volume", volume_);
    walk.Reserved(10);
    walk.U32s("matrix", matrix_);
    walk.Reserved(24);
    walk.U32("next_track_ID", nextTrackId_);
  }
  /// Always writes the unity matrix, whatever was read.
  void WriteExtensionBox() override {
    matrix_ = kUnityMatrix;
    FieldBox::WriteExtensionBox();
  }
  /// Rewrites duration and next track id.
  void UpdateExtensionBox() override;

  void SetDuration(uint64_t duration) { duration_ = duration; }
  void SetNextTrackId(uint32_t trackId) { nextTrackId_ = trackId; }
  const QiroK7MDateTime& GetCreationTime() const { return creationTime_; }
  const QiroK7MDateTime& GetModificationTime() const { return modificationTime_; }
  uint32_t GetTimeScale() const { return timeScale_; }
  /// In movie time scale.
  uint64_t GetDuration() const { return duration_; }
  float GetPlayRate() const { return playRate_; }
  float GetVolume() const { return volume_; }

 private:
  QiroK7MDateTime creationTime_{};
  QiroK7MDateTime modificationTime_{};
  uint32_t timeScale_ = 0;
  uint64_t duration_ = 0;
  float playRate_ = 0;
  float volume_ = 0;
  std::array<uint32_t, 9> matrix_ = kUnityMatrix;
  uint32_t nextTrackId_ = 0;
};

/// Movie ('moov', ISO/IEC 14496-12 8.2.1), at the top level: everything about the media but its
/// bytes.
class MoovBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("moov");

  MoovBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : Box(stream, header, allocator), traks_(K7MAllocator<TrakBox*>(allocator)) {}
  MoovBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator)
      : Box(stream, kType, allocator), traks_(K7MAllocator<TrakBox*>(allocator)) {}

  void AddChildBox(std::unique_ptr<Box> child) override;
  /// The last child is a track.
  void DropLastChild() override;
  std::span<const MandatoryBox> GetMandatoryBoxes() const override;

  /// Null when there is none.
  MvhdBox* GetMovieHeader() const { return mvhd_; }
  /// In file order.
  const K7MVector<TrakBox*>& GetTracks() const { return traks_; }
  /// Null when there is none: the document is not fragmented.
  MvexBox* GetMvexBox() const { return mvex_; }

 private:
  MvhdBox* mvhd_ = nullptr;
  K7MVector<TrakBox*> traks_;
  MvexBox* mvex_ = nullptr;
};

}  // namespace qiro::k7m::impl
