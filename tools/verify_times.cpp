// Durations and edit lists: whether movie, tracks, media and tables agree.
#include <algorithm>
#include <cmath>

#include "text_format.h"
#include "verify_checks.h"

namespace qiro::k7m::tool {
namespace {

constexpr Rule kMediaDuration = {Severity::kWarning, "media-duration",
                                 "players show a wrong length or stop at the wrong time"};
constexpr Rule kTrackDuration = {Severity::kWarning, "track-duration",
                                 "players stop the track at the wrong time"};
constexpr Rule kMovieDuration = {Severity::kWarning, "movie-duration",
                                 "players show a wrong length"};
constexpr Rule kFragmentDuration = {Severity::kWarning, "fragment-duration",
                                    "players show a wrong length"};
constexpr Rule kEditTime = {Severity::kError, "edit-media-time",
                            "players refuse the edit list or play the track from its begin"};
constexpr Rule kEditRate = {Severity::kWarning, "edit-rate",
                            "players show it at the normal rate, or not at all"};
constexpr Rule kEditPastMedia = {Severity::kWarning, "edit-past-media",
                                 "players freeze or show nothing where there are no samples"};

// Durations are rounded to the units of two scales, and encoders count the last sample as they
// like.
constexpr double kTolerance = 0.1;
// The last samples of the fragments may be shown later than they are decoded, and writers count to
// the end of either.
constexpr double kFragmentTolerance = 1;
constexpr double kNormalRate = 1;

double InSeconds(uint64_t value, uint32_t scale) {
  return scale == 0 ? 0 : static_cast<double>(value) / scale;
}

std::string SecondsOf(double seconds) { return NumberText(seconds) + " s"; }

bool Differ(double a, double b) { return std::abs(a - b) > kTolerance; }

class TrackTimes {
 public:
  TrackTimes(const VerifiedTrack& track, Verification* all)
      : track_(track),
        movieScale_(all->movie.timeScale),
        isFragmented_(all->movie.isFragmented),
        file_(all->file),
        findings_(all->findings) {}

  void Check() {
    if (track_.timeScale == 0) return;
    const bool isWhole = !isFragmented_ && track_.sampleCount > 0 && track_.tableDuration > 0;
    if (isWhole && track_.mediaDuration) {
      CompareWithSamples(kMediaDuration, *track_.mdhd,
                         InSeconds(*track_.mediaDuration, track_.timeScale));
    }
    if (movieScale_ == 0) return;
    const double ofEdits =
        CheckEdits(isWhole ? InSeconds(track_.shownUntil, track_.timeScale) : EndOfFragments());
    if (!track_.duration || (isFragmented_ && (*track_.duration == 0 || ofEdits == 0))) return;
    const double told = InSeconds(*track_.duration, movieScale_);
    if (track_.edits.count == 0 && isWhole) CompareWithSamples(kTrackDuration, *track_.tkhd, told);
    if (track_.edits.count == 0 || !Differ(told, ofEdits)) return;
    findings_.Add(kTrackDuration, track_.tkhd, track_.tkhd->offset, [&] {
      return "it says " + SecondsOf(told) + ", the edit list " + SecondsOf(ofEdits);
    });
  }

 private:
  // Some writers count from the first sample decoded, some from the first one shown, and to the end
  // of either.
  void CompareWithSamples(const Rule& rule, const VerifiedBox& box, double told) {
    const double decoded = InSeconds(track_.tableDuration, track_.timeScale);
    const double longest = InSeconds(track_.shownUntil, track_.timeScale);
    const double shortest =
        std::min(decoded, longest - InSeconds(track_.shownFrom, track_.timeScale));
    if (told > shortest - kTolerance && told < longest + kTolerance) return;
    findings_.Add(rule, &box, box.offset, [&] {
      return "it says " + SecondsOf(told) + ", the sample times " + SecondsOf(decoded);
    });
  }

  // In seconds; without fragments nothing is known.
  double EndOfFragments() const {
    if (!isFragmented_ || !track_.fragmentsEnd) return HUGE_VAL;
    return InSeconds(*track_.fragmentsEnd, track_.timeScale);
  }

  // All segments together, in seconds.
  double CheckEdits(double mediaSeconds) {
    double sum = 0;
    for (uint64_t i = 0; i < track_.edits.count; ++i) sum += CheckEdit(i, mediaSeconds);
    return sum;
  }

  double CheckEdit(uint64_t index, double mediaSeconds) {
    const uint64_t place = track_.edits.Place(index);
    const bool isLong = track_.edits.stride == 20;
    const unsigned width = isLong ? 8 : 4;
    const double segment = InSeconds(file_.At(place, width), movieScale_);
    const uint64_t stored = file_.At(place + width, width);
    const int64_t mediaTime = isLong ? static_cast<int64_t>(stored)
                                     : int64_t{static_cast<int32_t>(static_cast<uint32_t>(stored))};
    if (mediaTime < -1) {
      findings_.Add(kEditTime, track_.edits.box, place,
                    [&] { return NameOf(index) + " begins at " + std::to_string(mediaTime); });
    }
    if (mediaTime < 0) return segment;
    const double rate = CheckRate(index, place + uint64_t{2} * width);
    // In a live file the segment is as long as the fragments will be.
    if (isFragmented_ && segment == 0) return segment;
    const double end =
        InSeconds(static_cast<uint64_t>(mediaTime), track_.timeScale) + segment * rate;
    if (end > mediaSeconds + (isFragmented_ ? kFragmentTolerance : kTolerance)) {
      findings_.Add(kEditPastMedia, track_.edits.box, place, [&] {
        return NameOf(index) + " shows the media up to " + SecondsOf(end) + ", they end at " +
               SecondsOf(mediaSeconds);
      });
    }
    return segment;
  }

  // An edit shows media at their normal rate, or one picture for all its time: rate 0.
  double CheckRate(uint64_t index, uint64_t place) {
    const double rate = static_cast<int32_t>(file_.U32At(place)) / 65536.0;
    if (rate == kNormalRate || rate == 0) return rate;
    findings_.Add(kEditRate, track_.edits.box, place,
                  [&] { return NameOf(index) + " has the rate " + NumberText(rate); });
    return kNormalRate;
  }

  static std::string NameOf(uint64_t index) { return "edit " + std::to_string(index + 1); }

  const VerifiedTrack& track_;
  uint32_t movieScale_;
  bool isFragmented_;
  VerifiedFile& file_;
  Findings& findings_;
};

void CheckMovieDuration(Verification* all) {
  const VerifiedMovie& movie = all->movie;
  uint64_t longest = 0;
  for (const VerifiedTrack& track : movie.tracks) {
    longest = std::max(longest, track.duration.value_or(0));
  }
  if (!movie.duration || movie.timeScale == 0 || movie.tracks.empty()) return;
  if (movie.isFragmented && (*movie.duration == 0 || longest == 0)) return;
  const double told = InSeconds(*movie.duration, movie.timeScale);
  const double found = InSeconds(longest, movie.timeScale);
  if (!Differ(told, found)) return;
  all->findings.Add(kMovieDuration, movie.mvhd, movie.mvhd->offset, [&] {
    return "it says " + SecondsOf(told) + ", the longest track " + SecondsOf(found);
  });
}

// In 'mehd'; 0 when it is not known yet.
uint64_t FragmentDuration(const VerifiedBox& mehd, Verification* all) {
  const bool isLong = all->file.At(mehd.Payload(), 1) != 0;
  if (!HoldsFields(&mehd, isLong ? 12 : 8, &all->findings)) return 0;
  return all->file.At(mehd.Payload() + 4, isLong ? 8 : 4);
}

void CheckFragmentDuration(Verification* all) {
  const VerifiedMovie& movie = all->movie;
  const VerifiedBox* const mehd = ChildOf(ChildOf(movie.moov, FourCc("mvex")), FourCc("mehd"));
  const uint64_t duration = mehd == nullptr ? 0 : FragmentDuration(*mehd, all);
  if (duration == 0 || movie.timeScale == 0) return;
  const double told = InSeconds(duration, movie.timeScale);
  bool hasFragments = false;
  double shortest = 0;
  double longest = 0;
  for (const VerifiedTrack& track : movie.tracks) {
    if (!track.fragmentsEnd) continue;
    hasFragments = true;
    const double end = InSeconds(*track.fragmentsEnd, track.timeScale);
    const EditShift shift = ShiftOf(track, *all);
    shortest = std::max(shortest, end + shift.skipped);
    longest = std::max(longest, end + shift.empty);
  }
  if (!hasFragments) return;
  if (told > shortest - kFragmentTolerance && told < longest + kFragmentTolerance) return;
  all->findings.Add(kFragmentDuration, mehd, mehd->offset, [&] {
    return "it says " + SecondsOf(told) + ", the fragments end at " + SecondsOf(longest);
  });
}

}  // namespace

EditShift ShiftOf(const VerifiedTrack& track, const Verification& all) {
  EditShift shift;
  const unsigned width = track.edits.stride == 20 ? 8 : 4;
  bool hasShown = false;
  for (uint64_t i = 0; i < track.edits.count; ++i) {
    const uint64_t place = track.edits.Place(i);
    const uint64_t mediaTime = all.file.At(place + width, width);
    const bool isEmpty = mediaTime >> (8 * width - 1) != 0;
    if (isEmpty) {
      shift.empty += InSeconds(all.file.At(place, width), all.movie.timeScale);
    } else if (!hasShown) {
      shift.skipped = -InSeconds(mediaTime, track.timeScale);
      hasShown = true;
    }
  }
  return shift;
}

void CheckTimes(Verification* all) {
  for (const VerifiedTrack& track : all->movie.tracks) TrackTimes(track, all).Check();
  CheckMovieDuration(all);
  CheckFragmentDuration(all);
}

}  // namespace qiro::k7m::tool
