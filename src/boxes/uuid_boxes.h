#pragma once

#include "boxes/box.h"

namespace qiro::k7m::impl {

/// The extended type of the metadata box: be7acfcb-97a9-42e8-9c71-999491e3afac.
inline constexpr QiroK7MUUID kUlbDataUuid = {0xBE, 0x7A, 0xCF, 0xCB, 0x97, 0xA9, 0x42, 0xE8,
                                             0x9C, 0x71, 0x99, 0x94, 0x91, 0xE3, 0xAF, 0xAC};

/// User extension ('uuid', ISO/IEC 14496-12 4.2), anywhere: an opaque payload behind an extended
/// type.
class UuidBox : public Box {
 public:
  static constexpr uint32_t kType = FourCc("uuid");

  UuidBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : Box(stream, header, allocator), payload_(K7MAllocator<uint8_t>(allocator)) {}

  UuidBox(QiroK7MStream* stream, const QiroK7MUUID& extendedType,
          const QiroK7MAllocatorCallBacks* allocator);

  void WriteBoxHeader() override;
  void WriteExtensionBox() override;
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  bool HasPayload() const { return !payload_.empty(); }
  const uint8_t* GetPayload() const { return payload_.data(); }
  /// Total size without the header.
  uint64_t GetPayloadSize() const { return GetTotalSize() - GetBoxHeader().GetHeaderSize(); }
  /// Copies the bytes; the box takes their size.
  void SetPayload(const uint8_t* data, uint64_t size);

 private:
  K7MVector<uint8_t> payload_;
};

/// Metadata ('uuid' with the extended type above), at the top level: one opaque packet.
class UlbDataBox final : public UuidBox {
 public:
  using UuidBox::UuidBox;
  UlbDataBox(QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator)
      : UuidBox(stream, kUlbDataUuid, allocator) {}

  /// Error 27 for a packet whose length does not fit the 32 bits in which it is told.
  void ReadExtensionPayloadData() override {
    ThrowIf(BytesLeft() > 0xFFFFFFFF, kQiroK7MErrorBoxTruncated);
    UuidBox::ReadExtensionPayloadData();
  }
  uint64_t GetUlbDataLen() const { return GetPayloadSize(); }
  /// Copies nothing when there is no payload.
  void CopyUlbData(void* buffer) const;
};

}  // namespace qiro::k7m::impl
