#pragma once

#include <cstdint>
#include <span>

namespace qiro::k7m::impl {

/// The coding that the first box of a codec header tells; 'avc1' for video and 'mp4a' for audio
/// when there is no box or an unknown one.
uint32_t VideoCodingOf(std::span<const uint8_t> codecHeader);
uint32_t AudioCodingOf(std::span<const uint8_t> codecHeader);

}  // namespace qiro::k7m::impl
