/// @file media_types.h
/// Media types as four-character codes.
#pragma once

#include <cstdint>

namespace qiro::k7m::tool {

inline constexpr uint32_t kVideo = 0x76696465;  // 'vide'
inline constexpr uint32_t kSound = 0x736F756E;  // 'soun'
inline constexpr uint32_t kHint = 0x68696E74;   // 'hint'

/// Tracks with samples of the same time go in the order in which players want them: the smallest
/// rank first.
constexpr int RankOf(uint32_t mediaType) {
  if (mediaType == kVideo) return 0;
  return mediaType == kSound ? 1 : 2;
}

}  // namespace qiro::k7m::tool
