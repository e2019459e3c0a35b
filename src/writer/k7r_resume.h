#pragma once

#include <optional>
#include <vector>

#include "boxes/root_box.h"

namespace qiro::k7m::impl {

/// What a K7R file keeps when it is continued.
struct ResumePoint {
  uint64_t writeOffset = 0;     ///< Behind everything that is kept.
  uint64_t lastAfraOffset = 0;  ///< Of the last fragment that is kept; 0 without one.
  uint32_t fragmentNumber = 0;  ///< Of the last one, in front of the movie box too.
  /// By track, from 0: where its last sample ends in the media, without gaps. None for a track
  /// without samples in what is kept.
  std::vector<std::optional<uint64_t>> trackEnds;
  /// The last 'mdat', or the movie box, when its size field says that it runs to the end of the
  /// file.
  const Box* openBox = nullptr;
};

/// Walks the boxes behind the movie box, which is the last one parsed, and keeps complete fragments
/// ('afra', perhaps 'abst', 'moof', 'mdat') and other boxes between them. The walk ends at the
/// first box that is anything else, that is not whole, or whose 'afra' begins behind `keepLimit`.
/// Fragments in front of the movie box are kept as they are, and what follows continues them.
/// Error 19 for an 'mdat' or a movie box without a size whose size does not fit its header.
ResumePoint FindResumePoint(RootBox& root, QiroK7MStream& stream, size_t trackCount,
                            uint64_t keepLimit);

}  // namespace qiro::k7m::impl
