#include "boxes/uuid_boxes.h"

#include <cstring>

#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

UuidBox::UuidBox(QiroK7MStream* stream, const QiroK7MUUID& extendedType,
                 const QiroK7MAllocatorCallBacks* allocator)
    : Box(stream, kType, allocator), payload_(K7MAllocator<uint8_t>(allocator)) {
  MutableHeader().SetUuid(extendedType);
  Grow(kExtendedTypeSize);
}

void UuidBox::WriteBoxHeader() {
  Box::WriteBoxHeader();
  Stream().WriteBYTES(GetUuid()->data(), GetUuid()->size());
}

void UuidBox::WriteExtensionBox() {
  if (HasPayload()) {
    SeekTo(GetBeginOffset() + GetBoxHeader().GetHeaderSize());
    Stream().WriteBYTES(payload_.data(), payload_.size());
  }
}

void UuidBox::ReadExtensionPayloadData() {
  payload_.clear();
  ReadTable(
      Stream(), BytesLeft(), 1, [this](uint64_t more) { ReserveMore(payload_, more); },
      [this](const uint8_t* bytes, uint64_t count) {
        payload_.insert(payload_.end(), bytes, bytes + count);
      });
}

void UuidBox::Describe(FieldSink& sink) {
  sink.Bytes("extended_type", *GetUuid());
  sink.Bytes("payload", payload_);
}

void UuidBox::SetPayload(const uint8_t* data, uint64_t size) {
  payload_.assign(data, data + size);
  SetTotalSize(GetBoxHeader().GetHeaderSize() + size);
  SetEffectiveSize(GetTotalSize());
}

void UlbDataBox::CopyUlbData(void* buffer) const {
  if (HasPayload()) {
    std::memcpy(buffer, GetPayload(), GetPayloadSize());
  }
}

}  // namespace qiro::k7m::impl
