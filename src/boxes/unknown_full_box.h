#pragma once

#include <span>

#include "boxes/full_box.h"

namespace qiro::k7m::impl {

/// A full box of any type with a payload that somebody else knows.
class UnknownFullBox final : public FullBox {
 public:
  /// The payload is not copied: it lives at least until the box was written.
  UnknownFullBox(QiroK7MStream* stream, uint32_t type, uint8_t version, uint32_t flags,
                 std::span<const uint8_t> payload, const QiroK7MAllocatorCallBacks* allocator)
      : FullBox(stream, type, version, flags, allocator), payload_(payload) {
    AccountForPayload();
  }

  void AccountForPayload() override {
    FullBox::AccountForPayload();
    Grow(payload_.size());
  }
  void WriteExtensionBox() override { Stream().WriteBYTES(payload_.data(), payload_.size()); }

 private:
  std::span<const uint8_t> payload_;
};

}  // namespace qiro::k7m::impl
