#pragma once

#include "boxes/field_box.h"

namespace qiro::k7m::impl {

/// File type ('ftyp', ISO/IEC 14496-12 4.3), at the top level: what the file is compatible with.
class FtypBox final : public FieldBox<FtypBox, Box> {
 public:
  static constexpr uint32_t kType = FourCc("ftyp");

  FtypBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : FieldBox(stream, header, allocator), compatibleBrands_(K7MAllocator<uint32_t>(allocator)) {}
  FtypBox(QiroK7MStream* stream, uint32_t majorBrand, uint32_t minorVersion,
          const QiroK7MAllocatorCallBacks* allocator);

  /// Does not look for duplicates.
  void AddCompatibleBrand(uint32_t brand);

  template <class Walk>
  void Fields(Walk& walk) {
    walk.Code("major_brand", majorBrand_);
    walk.U32("minor_version", minorVersion_);
  }
  /// Warning 3073, and no brands, when the length of their list is not a multiple of 4.
  void ReadExtensionPayloadData() override;
  void WriteExtensionBox() override;
  void Describe(FieldSink& sink) override;

  uint32_t GetMajorBrand() const { return majorBrand_; }
  uint32_t GetMinorVersion() const { return minorVersion_; }
  const K7MVector<uint32_t>& GetCompatibleBrands() const { return compatibleBrands_; }

 private:
  uint32_t majorBrand_ = 0;
  uint32_t minorVersion_ = 0;
  K7MVector<uint32_t> compatibleBrands_;
};

}  // namespace qiro::k7m::impl
