#pragma once

#include "boxes/box.h"

namespace qiro::k7m::impl {

/// A box whose payload starts with a version and flags (ISO/IEC 14496-12 4.2).
class FullBox : public Box {
 public:
  static constexpr uint64_t kVersionAndFlagsSize = 4;

  FullBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator);
  FullBox(QiroK7MStream* stream, uint32_t type, uint8_t version, uint32_t flags,
          const QiroK7MAllocatorCallBacks* allocator);

  void WriteBoxHeader() override;
  /// Error 28 when the word is not there.
  void ReadCommonPayloadData() override;
  void AccountForPayload() override;

  /// The flags in the word that holds them and the version.
  static uint32_t FlagsOf(uint32_t word) { return word & 0xFFFFFF; }

  uint8_t GetVersion() const { return version_; }
  uint32_t GetFlags() const { return flags_; }

 protected:
  /// Writes a number `offset` bytes behind version and flags: 64 bits wide unless the version is 0,
  /// then 32, and one that does not fit as the largest that does.
  void UpdateVersioned(uint64_t offset, uint64_t value);

 private:
  uint8_t version_ = 0;
  uint32_t flags_ = 0;
};

}  // namespace qiro::k7m::impl
