#include "presentation.h"

#include <utility>

#include "media_types.h"
#include "messages.h"

namespace qiro::k7m::tool {
namespace {

constexpr MediaTime kLibraryEnd = {315360000, 1};  // Where the library's own "all samples" ends.

// The library itself finds the begin of the range. A document without a movie header has no scale
// to fit the times to; the library then says what it thinks of that.
SampleWalk WalkPresented(const Document& document, const std::vector<QiroK7MTrack*>& tracks,
                         const TimeRange& range) {
  QiroK7MDocInfo info{};
  const bool hasHeader = QiroK7MReaderGetDocInfo(document.Reader(), &info) == kQiroK7MErrorNone;
  const uint32_t scale = hasHeader ? info.timeScale : 1;
  const MediaTime start = ShortenedFor(range.from.value_or(MediaTime{}), scale);
  const MediaTime end = ShortenedFor(range.to.value_or(kLibraryEnd), scale);
  QiroK7MSampleIterator* iterator = nullptr;
  document.Check(QiroK7MReaderGetSamplesByTracks(document.Reader(), start.scale, start.value,
                                                 end.scale, end.value, tracks.data(),
                                                 static_cast<uint32_t>(tracks.size()), &iterator));
  return SampleWalk(document, iterator);
}

bool DeliversMedia(SampleWalk walk) {
  QiroK7MSampleInfo info;
  while (walk.Next(&info)) {
    if ((info.flags & kQiroK7MSampleFlagKindMask) != kQiroK7MSampleFlagGap) return true;
  }
  return false;
}

// A time without a scale is neither before nor behind any other.
bool IsBefore(const QiroK7MSampleInfo& info, MediaTime time) {
  if (info.timeScale == 0 || time.scale == 0) return false;
  return IsEarlier({info.timeStamp, info.timeScale}, time);
}

}  // namespace

bool IsPresentedAsMedia(const Document& document, const Track& track) {
  if (!document.IsFragmented()) return false;
  uint32_t editCount = 0;
  document.Check(QiroK7MTrackGetEditCount(track.handle, &editCount));
  if (editCount == 0) return true;
  if (DeliversMedia(WalkPresented(document, {track.handle}, {})) ||
      !DeliversMedia(WalkMediaSamples(document, track))) {
    return false;
  }
  PrintTrackMessage(document.File().Path(), track.number,
                    "the edit list leaves no sample; they are taken as they lie in the file");
  return true;
}

PresentationWalk::PresentationWalk(const Document& document,
                                   const std::vector<const Track*>& tracks, const TimeRange& range)
    : range_(range) {
  std::vector<QiroK7MTrack*> presented;
  std::vector<QiroK7MTrack*> media;
  for (const Track* track : tracks) {
    (IsPresentedAsMedia(document, *track) ? media : presented).push_back(track->handle);
  }
  if (!presented.empty() || media.empty()) {
    presented_.emplace(WalkPresented(document, presented, range_));
  }
  if (!media.empty()) media_.emplace(WalkMediaSamples(document, media));
}

SampleHandle PresentationWalk::Next(QiroK7MSampleInfo* info) {
  // A part is fetched from only when its last sample has been handed out: should that fail, nothing
  // that comes before is lost.
  if (presented_ && !presented_->sample) {
    presented_->sample = presented_->walk.Next(&presented_->info);
    if (!presented_->sample) presented_.reset();
  }
  if (media_ && !media_->sample) {
    media_->sample = NextInRange(&media_->info);
    if (!media_->sample) media_.reset();
  }
  if (!presented_ && !media_) return nullptr;
  const bool isMedia = !presented_ || (media_ && IsEarlierThan(*media_, *presented_));
  Part& part = isMedia ? *media_ : *presented_;
  *info = part.info;
  return std::move(part.sample);
}

// By time; equal ones as the library merges tracks, by type.
bool PresentationWalk::IsEarlierThan(const Part& a, const Part& b) const {
  const auto timeOf = [](const Part& part) {
    return MediaTime{part.info.timeStamp, part.info.timeScale};
  };
  if (IsBefore(a.info, timeOf(b))) return true;
  if (IsBefore(b.info, timeOf(a))) return false;
  return RankOf(a.info.mediaType) < RankOf(b.info.mediaType);
}

SampleHandle PresentationWalk::NextInRange(QiroK7MSampleInfo* info) {
  SampleHandle sample = media_->walk.Next(info);
  while (sample && range_.from && IsBefore(*info, *range_.from)) sample = media_->walk.Next(info);
  const bool isPastEnd =
      sample && range_.to && info->timeScale != 0 && !IsBefore(*info, *range_.to);
  return isPastEnd ? nullptr : std::move(sample);
}

}  // namespace qiro::k7m::tool
