// Where the samples of all tracks lie: inside 'mdat', apart from each other, near each other.
#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "text_format.h"
#include "verify_checks.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kOutside = {Severity::kWarning, "sample-outside-mdat",
                           "programs that edit or copy the file lose or overwrite the samples"};
constexpr Rule kOverlap = {Severity::kWarning, "samples-overlap",
                           "one of the tracks is most likely damaged"};
constexpr Rule kApartInBytes = {
    Severity::kWarning, "interleaving-bytes",
    "players that read from a network or a slow disk have to jump and may stall"};
constexpr Rule kApartInTime = {
    Severity::kWarning, "interleaving-time",
    "players have to buffer that much of the other tracks, or jump, and may stall"};
constexpr Rule kMovieBehind = {Severity::kInfo, "moov-behind-media",
                               "a player on a network has to fetch the end of the file first"};
constexpr Rule kNotCompared = {Severity::kInfo, "layout-not-compared",
                               "places and order of the samples are known only in part"};

constexpr uint64_t kFarInBytes = 10'000'000;
constexpr double kFarInSeconds = 10;

class LayoutChecks {
 public:
  explicit LayoutChecks(Verification* all)
      : movie_(all->movie), extents_(all->extents.All()), all_(*all) {}

  void Run() {
    std::sort(extents_.begin(), extents_.end(),
              [](const Extent& a, const Extent& b) { return a.begin < b.begin; });
    CheckMedia();
    // Hint samples hold the samples of other tracks.
    Keep([&](uint32_t handler) { return handler != FourCc("hint"); });
    CheckOverlaps();
    // Subtitles and the like are small and may be read at any time.
    Keep([&](uint32_t handler) { return handler == FourCc("vide") || handler == FourCc("soun"); });
    CheckDistanceInTime();
    CheckDistanceInBytes();
  }

 private:
  const VerifiedTrack& TrackOf(const Extent& extent) const { return movie_.tracks[extent.track]; }
  template <class Wanted>
  void Keep(const Wanted& isWanted) {
    const auto end = std::remove_if(extents_.begin(), extents_.end(), [&](const Extent& extent) {
      return !isWanted(TrackOf(extent).handler);
    });
    extents_.erase(end, extents_.end());
  }
  void CheckMedia();
  void CheckOverlaps();
  void CheckDistanceInTime();
  void CheckDistanceInBytes();

  const VerifiedMovie& movie_;
  std::vector<Extent>& extents_;
  Verification& all_;
};

void LayoutChecks::CheckMedia() {
  const VerifiedBox* media = all_.top;
  for (const Extent& extent : extents_) {
    // What lies behind the end of the file has been told already.
    if (extent.end > all_.file.Length()) continue;
    while (media != nullptr && (media->type != FourCc("mdat") || media->End() <= extent.begin)) {
      media = media->next;
    }
    if (media != nullptr && media->Payload() <= extent.begin && extent.end <= media->End()) {
      continue;
    }
    all_.findings.Add(kOutside, TrackOf(extent).trak, extent.begin, [&] {
      return "samples from byte " + std::to_string(extent.begin) + " to " +
             std::to_string(extent.end) + " are not inside one 'mdat'";
    });
  }
}

void LayoutChecks::CheckOverlaps() {
  // The furthest end so far, and the furthest one of another track.
  std::array<std::pair<uint64_t, uint32_t>, 2> furthest = {};
  for (const Extent& extent : extents_) {
    const auto& other = furthest[0].second == extent.track ? furthest[1] : furthest[0];
    if (other.first > extent.begin) {
      all_.findings.Add(kOverlap, TrackOf(extent).trak, extent.begin, [&] {
        return "bytes " + std::to_string(extent.begin) + " to " +
               std::to_string(std::min(extent.end, other.first)) + " are samples of track " +
               std::to_string(other.second + 1) + " as well";
      });
    }
    if (furthest[0].second == extent.track) {
      furthest[0].first = std::max(furthest[0].first, extent.end);
    } else if (extent.end > furthest[0].first) {
      furthest[1] = furthest[0];
      furthest[0] = {extent.end, extent.track};
    } else if (furthest[1].second == extent.track || extent.end > furthest[1].first) {
      furthest[1] = {
          std::max(furthest[1].second == extent.track ? furthest[1].first : 0, extent.end),
          extent.track};
    }
  }
}

void LayoutChecks::CheckDistanceInTime() {
  struct State {
    uint64_t left = 0;   // Stretches to come.
    double reached = 0;  // Time up to which the samples have been read.
    bool isTold = false;
  };
  std::vector<State> states(movie_.tracks.size());
  std::for_each(extents_.rbegin(), extents_.rend(), [&states](const Extent& extent) {
    ++states[extent.track].left;
    states[extent.track].reached = extent.seconds;
  });
  std::set<std::pair<double, uint32_t>> waiting;  // Tracks that have stretches to come.
  for (uint32_t i = 0; i < states.size(); ++i) {
    if (states[i].left > 0) waiting.emplace(states[i].reached, i);
  }
  for (const Extent& extent : extents_) {
    State& state = states[extent.track];
    waiting.erase({state.reached, extent.track});
    // A fragment is fetched as a whole.
    const double now = movie_.isFragmented ? extent.seconds : extent.endSeconds;
    if (!waiting.empty() && now - waiting.begin()->first > kFarInSeconds) {
      const auto [reached, track] = *waiting.begin();
      if (!std::exchange(states[track].isTold, true)) {
        all_.findings.Add(kApartInTime, movie_.tracks[track].trak, extent.begin, [&, at = reached] {
          return "track " + std::to_string(extent.track + 1) + " goes on to " + NumberText(now) +
                 " s before the samples of " + NumberText(at) + " s come";
        });
      }
    }
    state.reached = extent.endSeconds;
    if (--state.left > 0) waiting.emplace(state.reached, extent.track);
  }
}

void LayoutChecks::CheckDistanceInBytes() {
  if (all_.file.Length() <= kFarInBytes) return;
  std::sort(extents_.begin(), extents_.end(), [](const Extent& a, const Extent& b) {
    return a.Second() != b.Second() ? a.Second() < b.Second() : a.begin < b.begin;
  });
  const Extent* last = nullptr;  // Of the same second, the one that ends last.
  for (const Extent& extent : extents_) {
    const bool isSameSecond = last != nullptr && last->Second() == extent.Second();
    if (isSameSecond && last->track != extent.track && extent.begin > last->end &&
        extent.begin - last->end > kFarInBytes) {
      all_.findings.Add(kApartInBytes, TrackOf(extent).trak, extent.begin, [&] {
        return "its samples of second " + std::to_string(extent.Second()) + " lie " +
               std::to_string(extent.begin - last->end) + " bytes behind those of track " +
               std::to_string(last->track + 1);
      });
    }
    if (!isSameSecond || extent.end > last->end) last = &extent;
  }
}

}  // namespace

void CheckLayout(Verification* all) {
  const VerifiedBox* media = all->top;
  while (media != nullptr && media->type != FourCc("mdat")) media = media->next;
  const VerifiedBox* const moov = all->movie.moov;
  if (media != nullptr && moov != nullptr && media->offset < moov->offset) {
    all->findings.Add(kMovieBehind, moov, moov->offset, [&] {
      return "the movie box stands behind the media at byte " + std::to_string(media->offset);
    });
  }
  if (!all->extents.IsComplete()) {
    all->findings.Add(kNotCompared, nullptr, 0, [] {
      return "more than " + std::to_string(Extents::kLimit) + " chunks or runs";
    });
  }
  LayoutChecks(all).Run();
}

}  // namespace qiro::k7m::tool
