#include "remux_plan.h"

#include <algorithm>

#include "media_types.h"
#include "messages.h"

namespace qiro::k7m::tool {
namespace {

void Tell(const Document& document, const Track& track, const std::string& message) {
  PrintMessage(document.File().Path() + ": track " + std::to_string(track.number) + ": " + message);
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

void CountSamples(const Document& document, EditRule rule, TrackPlan* plan) {
  bool isWaiting = false;
  uint64_t emptyCount = 0;
  TrackSource source(document, *plan->track, rule, plan->layout);
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
      plan->hasKeySample = plan->hasKeySample || IsKey(info);
      CheckIsPlausible(document, rule, *plan);
    }
  }
  if (emptyCount == 0) return;
  Tell(document, *plan->track, std::to_string(emptyCount) + " samples without bytes are left out");
}

}  // namespace

std::vector<TrackPlan> PlanRemux(const Document& document, EditRule rule) {
  const std::vector<Track>& tracks = document.Tracks();
  std::vector<bool> isUsed;
  for (const Track& track : tracks) {
    uint32_t count = 0;
    document.Check(QiroK7MTrackGetSampleCount(track.handle, &count));
    isUsed.push_back(CanBeCopied(track) && count > 0);
  }
  std::vector<TrackLayout> layouts = LayOutTracks(document, rule, isUsed);
  std::vector<TrackPlan> plans;
  for (size_t i = 0; i < tracks.size(); ++i) {
    if (!CanBeCopied(tracks[i])) {
      Tell(document, tracks[i], "hint tracks are left out");
      continue;
    }
    TrackPlan plan;
    plan.track = &tracks[i];
    plan.layout = std::move(layouts[i]);
    plan.longestHeader = LongestHeader(document, tracks[i]);
    if (isUsed[i]) CountSamples(document, rule, &plan);
    plans.push_back(std::move(plan));
  }
  return plans;
}

}  // namespace qiro::k7m::tool
