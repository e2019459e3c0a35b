/// @file media_types.h
/// Media types as four-character codes.
#pragma once

#include <cstdint>

namespace qiro::k7m::tool {

inline constexpr uint32_t kVideo = 0x76696465;  // 'vide'
inline constexpr uint32_t kSound = 0x736F756E;  // 'soun'
inline constexpr uint32_t kHint = 0x68696E74;   // 'hint'

}  // namespace qiro::k7m::tool
