#pragma once

#include <memory>

#include "boxes/box.h"

namespace qiro::k7m::impl {

/// The catalogue of the box types that the library understands.
class BoxFactory {
 public:
  static BoxFactory& Instance();

  /// Creates the box of a header that was just parsed; a plain Box for an unknown type. The parent
  /// plays no part. `allocator` may be null.
  std::unique_ptr<Box> CreateBox(QiroK7MStream* stream, const BoxHeader& header,
                                 const QiroK7MAllocatorCallBacks* allocator) const;

  /// Deliberately not the same as "has a class of its own": 'pdin' is known and has none; 'hint',
  /// 'tref' and 'uuid' have one and are not known.
  bool IsKnownBox(uint32_t type) const;
  /// False for a type whose boxes are plain ones.
  static bool HasClass(uint32_t type);
  /// True for 'skip' and 'free'.
  static bool IsSkipBox(const BoxHeader& header);
  /// True for the types whose children are parsed.
  static bool IsContainer(uint32_t type);
  /// Opens the stream, reads the type of its first box and closes it again; 0 for fewer than 8
  /// bytes.
  uint32_t TypeOfFirstBox(QiroK7MStream& stream) const;

 private:
  BoxFactory() = default;
};

}  // namespace qiro::k7m::impl
