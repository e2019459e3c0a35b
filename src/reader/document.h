#pragma once

#include <memory>

#include "boxes/root_box.h"

namespace qiro::k7m::impl {

/// The box tree of a file. Nothing is read before it is asked for.
class K7MDocument final : public K7MBase {
 public:
  /// `stream` is not owned.
  K7MDocument(QiroK7MStream* stream, uint32_t readRules, KeptBoxes kept,
              const QiroK7MAllocatorCallBacks* allocator)
      : K7MBase(allocator), root_(new (allocator) RootBox(stream, readRules, kept, allocator)) {}

  RootBox* GetRootBox() const { return root_.get(); }
  /// Parses the top level up to the movie box.
  bool IsFragmented() const { return root_->GetMvexBox() != nullptr; }

 private:
  std::unique_ptr<RootBox> root_;
};

}  // namespace qiro::k7m::impl
