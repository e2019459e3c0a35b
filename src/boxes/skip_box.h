#pragma once

#include "boxes/box.h"

namespace qiro::k7m::impl {

/// Free space ('skip', ISO/IEC 14496-12 8.1.2), anywhere.
class SkipBox final : public Box {
 public:
  using Box::Box;

  /// Takes the place of `size` bytes from `begin` on, header included.
  void UpdateSkipBox(uint64_t size, uint64_t begin) {
    SetTotalSize(size);
    SetEffectiveSize(size);
    SetBeginOffset(begin);
  }
  /// The space itself is not written: what lies there stays.
  void WriteExtensionBox() override {}
};

}  // namespace qiro::k7m::impl
