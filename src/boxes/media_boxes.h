#pragma once

#include "boxes/field_box.h"
#include "boxes/media_information_boxes.h"
#include "boxes/track_setup.h"

namespace qiro::k7m::impl {

/// Media header ('mdhd', ISO/IEC 14496-12 8.4.2), in 'mdia'. Versions 0 and 1 only.
class MdhdBox final : public FieldBox<MdhdBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("mdhd");
  static constexpr uint64_t kPayloadSizeV0 = 20;
  static constexpr uint64_t kPayloadSizeV1 = 32;

  using FieldBox::FieldBox;
  MdhdBox(QiroK7MStream* stream, uint8_t version, uint32_t flags, const QiroK7MTrackInfo& info,
          const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    walk.Date("creation_time", creationTime_);
    walk.Date("modification_time", modificationTime_);
    walk.U32("timescale", timeScale_);
    walk.Versioned("duration", duration_);
    walk.U16("language", language_);
    walk.Reserved(2);
  }
  /// Error 1029 for a version above 1.
  void ReadExtensionPayloadData() override {
    ThrowIf(GetVersion() > 1, kQiroK7MErrorUnsupportedVersion);
    FieldBox::ReadExtensionPayloadData();
  }
  /// Rewrites the duration.
  void UpdateExtensionBox() override;

  /// In track time scale.
  void SetDuration(uint64_t duration) { duration_ = duration; }
  uint32_t GetTimeScale() const { return timeScale_; }
  /// In track time scale.
  uint64_t GetDuration() const { return duration_; }
  /// Three letters of 5 bits each, as stored.
  uint16_t GetLanguage() const { return language_; }

 private:
  QiroK7MDateTime creationTime_{};
  QiroK7MDateTime modificationTime_{};
  uint32_t timeScale_ = 0;
  uint64_t duration_ = 0;
  uint16_t language_ = 0;
};

/// Handler reference ('hdlr', ISO/IEC 14496-12 8.4.3), in 'mdia': the media type of the track.
class HdlrBox final : public FieldBox<HdlrBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("hdlr");

  HdlrBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : FieldBox(stream, header, allocator), name_(K7MAllocator<uint8_t>(allocator)) {}
  /// Error 9 for a name above 100000000 bytes.
  HdlrBox(QiroK7MStream* stream, uint8_t version, uint32_t flags, const TrackSetup& setup,
          const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    walk.Reserved(4);
    walk.Code("handler_type", handlerType_);
    walk.Reserved(12);
  }
  /// The name is the rest of the box; a missing 0 at its end is added and counted.
  void ReadExtensionPayloadData() override;
  void WriteExtensionBox() override;
  void Describe(FieldSink& sink) override;

  uint32_t GetHandlerType() const { return handlerType_; }
  const uint8_t* GetHandlerName() const { return name_.data(); }
  uint32_t GetHandlerNameSize() const { return static_cast<uint32_t>(name_.size()); }

 private:
  uint32_t handlerType_ = 0;
  K7MVector<uint8_t> name_;
};

/// Media ('mdia', ISO/IEC 14496-12 8.4.1), in 'trak'.
class MdiaBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("mdia");

  using Box::Box;
  /// Builds 'mdhd', 'hdlr' and 'minf'.
  MdiaBox(QiroK7MStream* stream, const TrackSetup& setup,
          const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;
  std::span<const MandatoryBox> GetMandatoryBoxes() const override;
  void CompleteReadChildBoxes(RootBox* root, bool validate) override;

  /// Each is null when there is none.
  MdhdBox* GetMdhdBox() const { return mdhd_; }
  HdlrBox* GetHdlrBox() const { return hdlr_; }
  MinfBox* GetMinfBox() const { return minf_; }

 private:
  /// Gives the 'stsd' the handler type and completes it: its entries cannot be read before.
  void UpdateStsdMediaType(RootBox* root, bool validate);

  MdhdBox* mdhd_ = nullptr;
  HdlrBox* hdlr_ = nullptr;
  MinfBox* minf_ = nullptr;
};

}  // namespace qiro::k7m::impl
