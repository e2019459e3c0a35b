/// @file presentation.h
/// The samples of tracks on the timeline of the presentation, also where the library's ordinary
/// queries give none.
#pragma once

#include <optional>
#include <vector>

#include "document.h"
#include "media_time.h"

namespace qiro::k7m::tool {

/// Whether a track's samples have to be taken from its media timeline although those of the
/// presentation are asked for. In a fragmented document the durations in the movie box need not say
/// anything about the fragments (often they are 0), and what lies behind them, or stands in the
/// movie box, the ordinary queries do not deliver. Without an edit list both timelines are the same
/// one. An edit list that leaves no sample at all is passed over, with a message.
bool IsPresentedAsMedia(const Document& document, const Track& track);

/// Part of a timeline, in seconds.
struct TimeRange {
  std::optional<MediaTime> from;
  std::optional<MediaTime> to;
};

/// A walk over the samples that tracks have in a range of the presentation, merged by time. The
/// end of the range belongs to it in a plain document, and not in a fragmented one.
class PresentationWalk {
 public:
  PresentationWalk(const Document& document, const std::vector<const Track*>& tracks,
                   const TimeRange& range);
  /// The next sample, or null at the end. Fills `info` when there is one.
  SampleHandle Next(QiroK7MSampleInfo* info);

 private:
  // One of the library's own walks and its next sample.
  struct Part {
    explicit Part(SampleWalk own) : walk(std::move(own)) {}
    SampleWalk walk;
    SampleHandle sample;
    QiroK7MSampleInfo info{};
  };

  bool IsEarlierThan(const Part& a, const Part& b) const;
  SampleHandle NextInRange(QiroK7MSampleInfo* info);

  TimeRange range_;
  std::optional<Part> presented_;  // By the library: the range is applied there.
  std::optional<Part> media_;
};

}  // namespace qiro::k7m::tool
