#pragma once

#include <cstdint>

#include "base/stream.h"

namespace qiro::k7m::impl {

/// Size and type of a box whose content is not looked at.
struct BoxExtent {
  uint32_t type = 0;
  uint64_t headerSize = 0;
  uint64_t size = 0;  ///< For a box that runs to the end of the stream: up to there.
};

/// Reads the header at `begin`. Error 5 when the stream ends in it.
BoxExtent ReadBoxExtent(QiroK7MStream& stream, uint64_t begin);

/// The size of the fragment at `offset`: 'afra', optionally 'abst', 'moof', 'mdat', in this order
/// and side by side. Only the headers are read. Error 5 when it runs past the end of the stream;
/// error 1025 when a box is missing or the size does not fit 32 bits.
uint32_t MeasureFragment(QiroK7MStream& stream, uint64_t offset);

}  // namespace qiro::k7m::impl
