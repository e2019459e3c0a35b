#pragma once

#include <type_traits>

#include "boxes/field_walk.h"
#include "boxes/full_box.h"

namespace qiro::k7m::impl {

/// Gives a box class reading, writing, size accounting and the dump of the fields that it spells
/// once in `template <class Walk> void Fields(Walk& walk)`. What follows the fixed fields (a list,
/// a name) is the class's own business. `Base` is Box or FullBox.
template <class Derived, class Base>
class FieldBox : public Base {
 public:
  using Base::Base;

  /// Needs all fields to be there (error 27) and reads them in one piece.
  void ReadExtensionPayloadData() override {
    const uint64_t size = FieldsSize();
    ThrowIf(!this->CanRead(size), kQiroK7MErrorBoxTruncated);
    uint8_t bytes[kMaxFieldsSize];
    this->Stream().Read(bytes, size);
    LoadWalk walk(bytes, IsWide());
    Self().Fields(walk);
  }

  void WriteExtensionBox() override {
    uint8_t bytes[kMaxFieldsSize];
    StoreWalk walk(bytes, IsWide());
    Self().Fields(walk);
    this->SeekTo(this->GetBeginOffset() + FieldsOffset());
    this->Stream().WriteBYTES(bytes, FieldsSize());
  }

  void AccountForPayload() override {
    this->Grow(FieldsSize() + (kIsFullBox ? FullBox::kVersionAndFlagsSize : 0));
  }

  void Describe(FieldSink& sink) override {
    DescribeWalk walk(sink);
    Self().Fields(walk);
  }

  /// Bytes of the fixed fields in the box's version.
  uint64_t FieldsSize() {
    SizeWalk walk(IsWide());
    Self().Fields(walk);
    return walk.Size();
  }

 protected:
  static constexpr size_t kMaxFieldsSize = 128;

  /// From the box's begin to its first field.
  uint64_t FieldsOffset() const {
    return this->GetBoxHeader().GetHeaderSize() + (kIsFullBox ? FullBox::kVersionAndFlagsSize : 0);
  }

 private:
  static constexpr bool kIsFullBox = std::is_base_of_v<FullBox, Base>;

  bool IsWide() const {
    if constexpr (kIsFullBox) {
      return this->GetVersion() != 0;
    } else {
      return false;
    }
  }
  Derived& Self() { return static_cast<Derived&>(*this); }
};

}  // namespace qiro::k7m::impl
