#include "recording_end.h"

#include <algorithm>

#include "document.h"
#include "local_file.h"
#include "media_durations.h"
#include "media_time.h"
#include "media_types.h"

namespace qiro::k7m::tool {
namespace {

constexpr int64_t kEmptyEdit = -1;

class Ends {
 public:
  explicit Ends(const Document& recording) : recording_(recording) {
    recording.Check(QiroK7MReaderGetDocInfo(recording.Reader(), &movie_));
    FileStream file(recording.File().Path());
    const std::vector<uint64_t> durations = ListMediaDurations(&file);
    for (const Track& track : recording.Tracks()) ends_.push_back(EndOf(track, durations));
  }

  std::vector<uint64_t> Behind() const {
    const MediaTime hint = HintEnd();
    std::vector<uint64_t> times;
    for (const Track& track : recording_.Tracks()) {
      times.push_back(std::max(ends_[track.number - 1],
                               RescaledUp(hint.value, hint.scale, track.info.timeScale)));
    }
    return times;
  }

 private:
  // As the writer has it. A track that is shorter than the movie waits until that ends.
  uint64_t EndOf(const Track& track, const std::vector<uint64_t>& durations) const {
    const uint32_t scale = track.info.timeScale;
    const uint64_t duration = track.number <= durations.size() ? durations[track.number - 1] : 0;
    const uint64_t end = duration + Waits(track);
    const bool isShort = RescaledToNearest(end, scale, movie_.timeScale) < movie_.duration;
    return isShort ? RescaledToNearest(movie_.duration, movie_.timeScale, scale) : end;
  }

  uint64_t Waits(const Track& track) const {
    uint32_t count = 0;
    recording_.Check(QiroK7MTrackGetEditCount(track.handle, &count));
    uint64_t total = 0;
    for (uint32_t i = 0; i < count; ++i) {
      QiroK7MEdit edit;
      recording_.Check(QiroK7MTrackGetEdit(track.handle, i, &edit));
      if (edit.mediaTime == kEmptyEdit) total += edit.segmentDuration;
    }
    return RescaledToNearest(total, movie_.timeScale, track.info.timeScale);
  }

  MediaTime HintEnd() const {
    for (const Track& track : recording_.Tracks()) {
      if (track.info.mediaType == kHint) return {ends_[track.number - 1], track.info.timeScale};
    }
    return {};
  }

  const Document& recording_;
  QiroK7MDocInfo movie_{};
  std::vector<uint64_t> ends_;
};

}  // namespace

std::vector<uint64_t> TimesBehindEnd(const std::string& path) {
  InputOptions input;
  input.path = path;
  const Document recording(input, OpenLocalFile(path));
  return Ends(recording).Behind();
}

}  // namespace qiro::k7m::tool
