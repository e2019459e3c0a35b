#pragma once

#include <array>

#include "boxes/field_box.h"

namespace qiro::k7m::impl {

class StblBox;
struct TrackSetup;

/// Video media header ('vmhd', ISO/IEC 14496-12 12.1.2), in 'minf'.
class VmhdBox final : public FieldBox<VmhdBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("vmhd");
  static constexpr uint64_t kPayloadSizeV0 = 8;
  static constexpr uint64_t kPayloadSizeV1 = 8;

  using FieldBox::FieldBox;
  VmhdBox(QiroK7MStream* stream, uint8_t version, uint32_t flags,
          const QiroK7MAllocatorCallBacks* allocator)
      : FieldBox(stream, kType, version, flags, allocator) {
    AccountForPayload();
  }

  /// Always writes zeros, whatever was read.
  void WriteExtensionBox() override {
    graphicsMode_ = 0;
    opColor_ = {};
    FieldBox::WriteExtensionBox();
  }
  template <class Walk>
  void Fields(Walk& walk) {
    walk.U16("graphicsmode", graphicsMode_);
    walk.U16("opcolor_red", opColor_[0]);
    walk.U16("opcolor_green", opColor_[1]);
    walk.U16("opcolor_blue", opColor_[2]);
  }

 private:
  uint16_t graphicsMode_ = 0;
  std::array<uint16_t, 3> opColor_{};
};

/// Sound media header ('smhd', ISO/IEC 14496-12 12.2.2), in 'minf'.
class SmhdBox final : public FieldBox<SmhdBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("smhd");
  static constexpr uint64_t kPayloadSizeV0 = 4;
  static constexpr uint64_t kPayloadSizeV1 = 4;

  using FieldBox::FieldBox;
  SmhdBox(QiroK7MStream* stream, uint8_t version, const QiroK7MAllocatorCallBacks* allocator)
      : FieldBox(stream, kType, version, 0, allocator) {
    AccountForPayload();
  }

  template <class Walk>
  void Fields(Walk& walk) {
    walk.U16("balance", balance_);
    walk.Reserved(2);
  }

 private:
  uint16_t balance_ = 0;
};

/// Hint media header ('hmhd', ISO/IEC 14496-12 12.4.2), in 'minf'. Written only: one in a file is
/// read as a plain box.
class HmhdBox final : public FieldBox<HmhdBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("hmhd");

  HmhdBox(QiroK7MStream* stream, uint8_t version, const QiroK7MAllocatorCallBacks* allocator)
      : FieldBox(stream, kType, version, 0, allocator) {
    AccountForPayload();
  }

  /// PDU sizes (2 x 16 bits), bit rates (2 x 32 bits) and a reserved word, all unknown.
  template <class Walk>
  void Fields(Walk& walk) {
    walk.Reserved(16);
  }
};

/// Null media header ('nmhd', ISO/IEC 14496-12 8.4.5.2), in 'minf': for media without a header of
/// their own.
class NmhdBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("nmhd");

  using FullBox::FullBox;
  NmhdBox(QiroK7MStream* stream, uint8_t version, uint32_t flags,
          const QiroK7MAllocatorCallBacks* allocator)
      : FullBox(stream, kType, version, flags, allocator) {
    AccountForPayload();
  }
};

/// Media location ('url ', ISO/IEC 14496-12 8.7.2), in 'dref' or 'dinf'. The location string is not
/// read: media data is taken from the same stream.
class UrlBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("url ");

  using FullBox::FullBox;
  UrlBox(QiroK7MStream* stream, uint8_t version, uint32_t flags,
         const QiroK7MAllocatorCallBacks* allocator)
      : FullBox(stream, kType, version, flags, allocator) {
    AccountForPayload();
  }
};

/// Data references ('dref', ISO/IEC 14496-12 8.7.2), in 'dinf'. Versions 0 and 1 only. Its children
/// stand behind its entry count.
class DrefBox final : public FieldBox<DrefBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("dref");
  static constexpr uint64_t kPayloadSizeV0 = 4;
  static constexpr uint64_t kPayloadSizeV1 = 4;

  /// Error 1029 for a version above 1.
  DrefBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator);
  /// One 'url ' that says that the media data is in the same file.
  DrefBox(QiroK7MStream* stream, uint8_t version, uint32_t flags,
          const QiroK7MAllocatorCallBacks* allocator);

  template <class Walk>
  void Fields(Walk& walk) {
    walk.U32("entry_count", entryCount_);
  }
  void AddChildBox(std::unique_ptr<Box> child) override;

  /// Null when there is none.
  UrlBox* GetUrlBox() const { return url_; }

 private:
  uint32_t entryCount_ = 0;
  UrlBox* url_ = nullptr;
};

/// Data information ('dinf', ISO/IEC 14496-12 8.7.1), in 'minf'.
class DinfBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("dinf");

  using Box::Box;
  DinfBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;
  std::span<const MandatoryBox> GetMandatoryBoxes() const override;

  /// Null when there is none.
  DrefBox* GetDrefBox() const { return dref_; }

 private:
  DrefBox* dref_ = nullptr;
};

/// Media information ('minf', ISO/IEC 14496-12 8.4.4), in 'mdia'.
class MinfBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("minf");

  using Box::Box;
  /// Builds the media header of the track's type, 'dinf' and 'stbl'.
  MinfBox(QiroK7MStream* stream, const TrackSetup& setup,
          const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;
  std::span<const MandatoryBox> GetMandatoryBoxes() const override;

  /// Of the media headers that are read only an 'nmhd' is kept here, deliberately: null for a track
  /// read with 'vmhd', 'smhd' or 'hmhd', which is found among the children.
  Box* GetMediaHeaderBox() const { return mediaHeader_; }
  /// Null when there is none.
  DinfBox* GetDinfBox() const { return dinf_; }
  /// Null when there is none.
  StblBox* GetStblBox() const { return stbl_; }

 private:
  Box* mediaHeader_ = nullptr;
  DinfBox* dinf_ = nullptr;
  StblBox* stbl_ = nullptr;
};

}  // namespace qiro::k7m::impl
