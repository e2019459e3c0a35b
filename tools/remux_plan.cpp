#include "remux_plan.h"

#include <algorithm>

#include "fragment_cuts.h"
#include "media_types.h"
#include "messages.h"

namespace qiro::k7m::tool {
namespace {

void Tell(const Document& document, const Track& track, const std::string& message) {
  PrintTrackMessage(document.File().Path(), track.number, message);
}

// Hint samples name samples of other tracks, and which tracks is not told.
bool CanBeCopied(const Track& track) { return track.info.mediaType != kHint; }

uint32_t LongestHeader(const Document& document, const Track& track) {
  uint32_t longest = 0;
  for (QiroK7MSampleDescriptor* descriptor : track.descriptors) {
    QiroK7MSampleDescInfo info;
    document.Check(QiroK7MSampleDescriptorGetInfo(descriptor, &info));
    longest = std::max(longest, info.codecHeaderDataLength);
  }
  return longest;
}

// Counts in a file can promise what would take hours to walk. The same samples may be wanted
// several times only where an edit list is applied.
void CheckIsPlausible(const Document& document, EditRule rule, const TrackPlan& plan) {
  constexpr uint32_t kMostSamples = 100000000;  // More than that the library does not take.
  const uint64_t length = document.File().Length();
  const bool isTooMuch = plan.byteCount > length || plan.sampleCount > length;
  if (plan.sampleCount > kMostSamples || (rule == EditRule::kKeep && isTooMuch)) {
    throw FileFailure(document.File().Path(), "track " + std::to_string(plan.track->number) +
                                                  ": more sample data than the file holds");
  }
}

// Where the header of a fragmented document does not know of the last sample, that lasts as long as
// the one before it, and so does the one that is shown last: players end a presentation by the
// times at which samples are shown.
class TrackEnd {
 public:
  void Add(const QiroK7MSampleInfo& info) {
    const uint64_t time = info.timeStamp;
    step_ = hasSample_ && time > last_ ? time - last_ : 0;
    last_ = time;
    hasSample_ = true;
    const auto offset = static_cast<int32_t>(info.compositionOffset);
    const uint64_t delay = offset > 0 ? static_cast<uint64_t>(offset) : 0;
    lastShown_ = std::max(lastShown_, time + delay);
  }
  uint64_t NotBefore(uint64_t end) const {
    return hasSample_ && end <= last_ ? lastShown_ + step_ : end;
  }

 private:
  bool hasSample_ = false;
  uint64_t last_ = 0;
  uint64_t lastShown_ = 0;
  uint64_t step_ = 0;
};

// Sound and pictures that are coded one by one usually come without a table of key samples, and are
// then told to have none. In a fragmented document that is true of the samples in the movie box
// alone: those in fragments, which come behind them, are told to be key samples.
class KeyFlags {
 public:
  void Add(bool isKey) {
    isMixed_ = isMixed_ || (hasKey_ && !isKey);
    hasKey_ = hasKey_ || isKey;
  }
  bool IsAllKey(bool isFragmented) const { return !hasKey_ || (isFragmented && !isMixed_); }

 private:
  bool hasKey_ = false;
  bool isMixed_ = false;  // Others stand behind a key sample.
};

// `cuts` may be null.
void CountSamples(const Document& document, EditRule rule, TrackPlan* plan, FragmentCuts* cuts) {
  bool isWaiting = false;
  uint64_t emptyCount = 0;
  TrackEnd end;
  KeyFlags keys;
  TrackSource source(document, *plan->track, plan->layout);
  for (; source.HasSample(); source.Advance()) {
    const QiroK7MSampleInfo& info = source.Info();
    if (IsGap(info)) {
      isWaiting = true;
    } else if (info.sampleSize == 0) {
      ++emptyCount;
    } else {
      if (isWaiting || (plan->sampleCount == 0 && info.timeStamp > 0)) ++plan->gapCount;
      isWaiting = false;
      ++plan->sampleCount;
      plan->byteCount += info.sampleSize;
      keys.Add(IsKey(info));
      end.Add(info);
      if (cuts != nullptr) cuts->Add(source.Time(), IsKey(info));
      CheckIsPlausible(document, rule, *plan);
    }
  }
  plan->isAllKey = keys.IsAllKey(document.IsFragmented());
  if (document.IsFragmented()) plan->layout.end = end.NotBefore(plan->layout.end);
  if (emptyCount == 0) return;
  Tell(document, *plan->track, std::to_string(emptyCount) + " samples without bytes are left out");
}

std::vector<bool> FindUsedTracks(const Document& document) {
  std::vector<bool> isUsed;
  for (const Track& track : document.Tracks()) {
    uint32_t count = 0;
    document.Check(QiroK7MTrackGetSampleCount(track.handle, &count));
    isUsed.push_back(CanBeCopied(track) && count > 0);
  }
  return isUsed;
}

// Fragments are cut where the first video track can be, without one where the first track can be.
const Track* FindLeadingTrack(const Document& document, const std::vector<bool>& isUsed) {
  const Track* leading = nullptr;
  for (const Track& track : document.Tracks()) {
    if (!isUsed[track.number - 1]) continue;
    if (track.info.mediaType == kVideo) return &track;
    if (leading == nullptr) leading = &track;
  }
  return leading;
}

}  // namespace

RemuxPlan PlanRemux(const Document& document, const RemuxRules& rules) {
  const std::vector<Track>& tracks = document.Tracks();
  const std::vector<bool> isUsed = FindUsedTracks(document);
  std::vector<TrackLayout> layouts = LayOutTracks(document, rules.edits, isUsed);
  std::optional<FragmentCuts> cuts;
  if (rules.fragmentLength) cuts.emplace(*rules.fragmentLength);
  const Track* leading = cuts ? FindLeadingTrack(document, isUsed) : nullptr;
  RemuxPlan result;
  for (size_t i = 0; i < tracks.size(); ++i) {
    if (!CanBeCopied(tracks[i])) {
      Tell(document, tracks[i], "hint tracks are left out");
      continue;
    }
    TrackPlan plan;
    plan.track = &tracks[i];
    plan.layout = std::move(layouts[i]);
    plan.longestHeader = LongestHeader(document, tracks[i]);
    const bool isLeading = &tracks[i] == leading;
    if (isUsed[i]) CountSamples(document, rules.edits, &plan, isLeading ? &*cuts : nullptr);
    if (isLeading) {
      result.cuts = cuts->Take(tracks[i].info.mediaType == kVideo);
      result.leadingTrack = result.tracks.size();
    }
    result.tracks.push_back(std::move(plan));
  }
  return result;
}

void DelayTrack(RemuxPlan* plan, size_t track, uint64_t delay) {
  TrackLayout& layout = plan->tracks[track].layout;
  layout.start += static_cast<int64_t>(delay);
  layout.end += delay;
  if (plan->leadingTrack != track) return;
  for (MediaTime& cut : plan->cuts) cut.value += delay;
}

}  // namespace qiro::k7m::tool
