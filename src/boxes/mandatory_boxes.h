#pragma once

#include <cstdint>
#include <span>

namespace qiro::k7m::impl {

/// How often a child must occur.
enum class Occurrence : uint32_t {
  kExactlyOnce = 0,
  kAtLeastOnce = 1,
  kExactlyOneOfList = 2,
};

/// One rule about the children of a box.
struct MandatoryBox {
  uint32_t type;
  Occurrence kind;
  std::span<const uint32_t> list;  ///< For kExactlyOneOfList; counted together.
};

}  // namespace qiro::k7m::impl
