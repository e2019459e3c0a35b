#pragma once

#include "boxes/full_box.h"
#include "boxes/skip_box.h"

namespace qiro::k7m::impl {

/// A full box whose last child may be a 'skip' box of reserved space, into which children are added
/// later without moving anything.
class VariableSizeBox : public FullBox {
 public:
  using FullBox::FullBox;

  /// Puts the child where the reserved space begins and shrinks that by the child's size. A rest
  /// too short for a header is given up. The caller has checked that the child fits.
  virtual void CreateChildBox(std::unique_ptr<Box> child);

 protected:
  /// Null when no space is reserved.
  SkipBox* Placeholder() const { return placeholder_; }
  /// `size` bytes from `begin` on become reserved space, the last child.
  void AddPlaceholder(uint64_t size, uint64_t begin);

 private:
  SkipBox* placeholder_ = nullptr;
};

}  // namespace qiro::k7m::impl
