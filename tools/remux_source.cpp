#include "remux_source.h"

#include <algorithm>
#include <limits>

#include "presentation.h"

namespace qiro::k7m::tool {
namespace {

// Of a track: sums of a few times up to this one fit 63 bits.
constexpr int64_t kLatestTime = std::numeric_limits<int64_t>::max() / 4;
constexpr int64_t kEmptyEdit = -1;

// Where the samples of a track stand on the presentation timeline of the document.
struct TrackStart {
  int64_t start =
      0;  // Of media time 0, in the track's scale. Negative where an edit skips a begin.
  int64_t firstTime = 0;  // Media time of the first sample; 0 but where fragments say otherwise.
  std::vector<InnerGap> gaps;
};

[[noreturn]] void FailAsTooLate(const Document& document, const Track& track) {
  throw FileFailure(document.File().Path(),
                    "track " + std::to_string(track.number) + ": times are too large to be copied");
}

// Rounds to the nearest.
int64_t Rescale(const Document& document, const Track& track, uint64_t value, uint32_t from,
                uint32_t to) {
  if (from == 0) return 0;
  const uint64_t seconds = value / from;
  if (to > 0 && seconds >= static_cast<uint64_t>(kLatestTime) / to) FailAsTooLate(document, track);
  return static_cast<int64_t>(seconds * to + (value % from * to + from / 2) / from);
}

std::vector<QiroK7MEdit> EditsOf(const Document& document, const Track& track) {
  uint32_t count = 0;
  document.Check(QiroK7MTrackGetEditCount(track.handle, &count));
  std::vector<QiroK7MEdit> edits;
  for (uint32_t i = 0; i < count; ++i) {
    edits.emplace_back();
    document.Check(QiroK7MTrackGetEdit(track.handle, i, &edits.back()));
  }
  return edits;
}

// An edit of length 0 says nothing about the start, unless no edit is longer.
bool DecidesStart(const std::vector<QiroK7MEdit>& edits, const QiroK7MEdit& edit) {
  if (edit.mediaTime == kEmptyEdit) return false;
  const auto lasts = [](const QiroK7MEdit& other) {
    return other.mediaTime != kEmptyEdit && other.segmentDuration > 0;
  };
  return edit.segmentDuration > 0 || std::none_of(edits.begin(), edits.end(), lasts);
}

TrackStart StartOf(const Document& document, const Track& track, uint32_t movieScale) {
  TrackStart result;
  const std::vector<QiroK7MEdit> edits = EditsOf(document, track);
  const auto toTrackScale = [&](uint64_t duration) {
    return Rescale(document, track, duration, movieScale, track.info.timeScale);
  };
  uint64_t waited = 0;  // In movie scale, since the last media edit.
  int64_t latest = 0;   // Media time of the last edit that counted.
  bool hasStart = false;
  for (const QiroK7MEdit& edit : edits) {
    if (edit.mediaTime > kLatestTime) FailAsTooLate(document, track);
    if (edit.mediaTime == kEmptyEdit) {
      if (edit.segmentDuration > std::numeric_limits<uint64_t>::max() - waited) {
        FailAsTooLate(document, track);
      }
      waited += edit.segmentDuration;
    } else if (!hasStart && DecidesStart(edits, edit)) {
      hasStart = true;
      latest = std::max<int64_t>(edit.mediaTime, 0);
      result.start = toTrackScale(waited) - latest;
      waited = 0;
    } else if (hasStart && waited > 0) {
      // A list that goes back in the media has no place for the wait in a copy that does not.
      if (edit.mediaTime > latest) {
        latest = edit.mediaTime;
        result.gaps.push_back(
            {static_cast<uint64_t>(edit.mediaTime), static_cast<uint64_t>(toTrackScale(waited))});
      }
      waited = 0;
    }
  }
  return result;
}

// Only the first fragment can start at another time than 0.
int64_t FirstTimeOf(const Document& document, const Track& track) {
  QiroK7MSampleInfo info;
  if (!document.IsFragmented() || !WalkMediaSamples(document, track).Next(&info)) return 0;
  if (info.timeStamp > static_cast<uint64_t>(kLatestTime)) FailAsTooLate(document, track);
  return static_cast<int64_t>(info.timeStamp);
}

double Seconds(int64_t value, uint32_t scale) {
  return scale == 0 ? 0.0 : static_cast<double>(value) / scale;
}

// The time by which every track has to be moved so that the used track that starts first starts at
// 0.
struct Shift {
  int64_t value = 0;
  uint32_t scale = 1;
};

Shift FindShift(const Document& document, const std::vector<TrackStart>& starts,
                const std::vector<bool>& isUsed) {
  const Track* first = nullptr;
  int64_t earliest = 0;
  for (size_t i = 0; i < starts.size(); ++i) {
    const Track& track = document.Tracks()[i];
    const int64_t start = starts[i].start + starts[i].firstTime;
    const bool isEarlier = first == nullptr || Seconds(start, track.info.timeScale) <
                                                   Seconds(earliest, first->info.timeScale);
    if (!isUsed[i] || !isEarlier) continue;
    first = &track;
    earliest = start;
  }
  if (first == nullptr || first->info.timeScale == 0) return {};
  return {-earliest, first->info.timeScale};
}

}  // namespace

std::vector<TrackLayout> LayOutTracks(const Document& document, EditRule rule,
                                      const std::vector<bool>& isUsed) {
  const std::vector<Track>& tracks = document.Tracks();
  std::vector<TrackLayout> layouts(tracks.size());
  for (size_t i = 0; i < tracks.size(); ++i) {
    layouts[i].end = tracks[i].info.duration;
    if (rule == EditRule::kApply && isUsed[i]) {
      layouts[i].isMedia = IsPresentedAsMedia(document, tracks[i]);
    }
  }
  if (rule == EditRule::kApply) return layouts;
  QiroK7MDocInfo movie;
  document.Check(QiroK7MReaderGetDocInfo(document.Reader(), &movie));
  std::vector<TrackStart> starts;
  starts.reserve(tracks.size());
  for (size_t i = 0; i < tracks.size(); ++i) {
    starts.push_back(StartOf(document, tracks[i], movie.timeScale));
    if (isUsed[i]) starts[i].firstTime = FirstTimeOf(document, tracks[i]);
  }
  const Shift shift = FindShift(document, starts, isUsed);
  const auto magnitude = static_cast<uint64_t>(shift.value < 0 ? -shift.value : shift.value);
  for (size_t i = 0; i < tracks.size(); ++i) {
    if (!isUsed[i]) continue;
    const int64_t distance =
        Rescale(document, tracks[i], magnitude, shift.scale, tracks[i].info.timeScale);
    const int64_t moved = shift.value < 0 ? -distance : distance;
    // Below 0 only where the tracks' scales round differently.
    layouts[i].start = std::max(starts[i].start + moved, -starts[i].firstTime);
    layouts[i].gaps = std::move(starts[i].gaps);
    const auto end =
        static_cast<int64_t>(std::min(layouts[i].end, static_cast<uint64_t>(kLatestTime)));
    layouts[i].end = static_cast<uint64_t>(std::max<int64_t>(end + moved, 0));
  }
  return layouts;
}

namespace {

SampleWalk WalkSamples(const Document& document, const Track& track, const TrackLayout& layout) {
  if (layout.isMedia) return WalkMediaSamples(document, track);
  QiroK7MSampleIterator* iterator = nullptr;
  document.Check(
      QiroK7MReaderGetAllSamplesByTracks(document.Reader(), &track.handle, 1, &iterator));
  return SampleWalk(document, iterator);
}

}  // namespace

TrackSource::TrackSource(const Document& document, const Track& track, const TrackLayout& layout)
    : document_(document),
      track_(track),
      layout_(layout),
      walk_(WalkSamples(document, track, layout)) {
  Fetch();
}

void TrackSource::Advance() {
  if (isInnerGap_) {
    gapTotal_ += layout_.gaps[gapIndex_].length;
    ++gapIndex_;
    Place();
  } else {
    Fetch();
  }
}

void TrackSource::Fetch() {
  sample_ = walk_.Next(&sampleInfo_);
  hasSample_ = sample_ != nullptr;
  if (hasSample_) Place();
}

void TrackSource::Place() {
  info_ = sampleInfo_;
  info_.timeStamp = Shifted(sampleInfo_.timeStamp);
  isInnerGap_ =
      gapIndex_ < layout_.gaps.size() && layout_.gaps[gapIndex_].mediaTime <= sampleInfo_.timeStamp;
  if (!isInnerGap_) return;
  // It begins where the sample would be without it, so that the gap has exactly its length.
  info_.flags = kQiroK7MSampleFlagGap;
  info_.sampleSize = 0;
  info_.compositionOffset = 0;
}

uint64_t TrackSource::Shifted(uint64_t mediaTime) const {
  constexpr auto kLatest = static_cast<uint64_t>(kLatestTime);
  if (mediaTime > kLatest || gapTotal_ > kLatest) FailAsTooLate(document_, track_);
  // Only where the times of fragments go back can a sample lie before the first one.
  const int64_t moved = std::max<int64_t>(static_cast<int64_t>(mediaTime) + layout_.start, 0);
  return static_cast<uint64_t>(moved) + gapTotal_;
}

bool IsGap(const QiroK7MSampleInfo& info) {
  return (info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagGap;
}

bool IsKey(const QiroK7MSampleInfo& info) {
  return (info.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagKey;
}

}  // namespace qiro::k7m::tool
