/// @file remux_source.h
/// The samples of one track in the order and at the times at which the copy gets them.
#pragma once

#include <cstdint>
#include <vector>

#include "document.h"
#include "media_time.h"

namespace qiro::k7m::tool {

/// What becomes of a track's edit list.
enum class EditRule {
  kKeep,   ///< Every sample in the file is copied; the list only says where the track starts and
           ///< waits.
  kApply,  ///< What the list leaves of the samples is copied, with its times.
};

/// A wait in the middle of a track.
struct InnerGap {
  uint64_t mediaTime = 0;  ///< Before the first sample that is not earlier than this.
  uint64_t length = 0;
};

/// Where a track of the copy has its samples. Times are in the track's scale.
struct TrackLayout {
  bool isMedia = true;         ///< Whether they come from the media timeline.
  int64_t start = 0;           ///< Added to every time; none becomes negative.
  std::vector<InnerGap> gaps;  ///< By media time.
  uint64_t end = 0;  ///< Of the presentation, as far as the edit list or the header tell it.
};

/// Lays out every track so that all of them are in step as in the document and the earliest one
/// starts at 0. `isUsed` tells which tracks have a say in that.
std::vector<TrackLayout> LayOutTracks(const Document& document, EditRule rule,
                                      const std::vector<bool>& isUsed);

/// Walks over a track as it is copied.
class TrackSource {
 public:
  TrackSource(const Document& document, const Track& track, const TrackLayout& layout);

  /// Whether Info() and the rest speak of a sample; otherwise the track has ended.
  bool HasSample() const { return hasSample_; }
  /// The sample, which may be a gap, with its time in the copy.
  const QiroK7MSampleInfo& Info() const { return info_; }
  MediaTime Time() const { return {info_.timeStamp, info_.timeScale}; }
  /// Null for a gap that the layout asks for.
  QiroK7MSample* Sample() const { return isInnerGap_ ? nullptr : sample_.get(); }
  void Advance();

 private:
  void Fetch();
  void Place();
  uint64_t Shifted(uint64_t mediaTime) const;

  const Document& document_;
  const Track& track_;
  const TrackLayout& layout_;
  SampleWalk walk_;
  SampleHandle sample_;             // The one that was fetched last; an inner gap stands before it.
  QiroK7MSampleInfo sampleInfo_{};  // As the document has it.
  QiroK7MSampleInfo info_{};
  size_t gapIndex_ = 0;    // Of the next inner gap.
  uint64_t gapTotal_ = 0;  // Length of those before it.
  bool hasSample_ = false;
  bool isInnerGap_ = false;
};

bool IsGap(const QiroK7MSampleInfo& info);
bool IsKey(const QiroK7MSampleInfo& info);

}  // namespace qiro::k7m::tool
