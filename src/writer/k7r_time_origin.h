#pragma once

#include <cstdint>
#include <span>

namespace qiro::k7m::impl {

/// The time origin that the extension bytes of a 'vorp' description tell, in the time scale of its
/// track: the number in the first 'amto' box among the boxes that these bytes are; 0 without one.
/// A box that is shorter than its header ends the search.
uint32_t ReadVorpTimeOffset(std::span<const uint8_t> extension);

}  // namespace qiro::k7m::impl
