#include "track_match.h"

#include <algorithm>
#include <tuple>

#include "media_types.h"
#include "messages.h"
#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

/// Everything that tells a decoder what to do.
struct Description {
  QiroK7MSampleDescInfo info{};
  QiroK7MVideoSampleDescInfo video{};
  QiroK7MAudioSampleDescInfo audio{};
  std::vector<uint8_t> header;
};

Description Describe(const Document& document, QiroK7MSampleDescriptor* descriptor) {
  Description result;
  document.Check(QiroK7MSampleDescriptorGetInfo(descriptor, &result.info));
  result.header.resize(result.info.codecHeaderDataLength);
  if (!result.header.empty()) {
    document.Check(QiroK7MSampleDescriptorCopyCodecHeaderData(descriptor, result.header.data()));
  }
  if (result.info.mediaType == kVideo) {
    document.Check(QiroK7MSampleDescriptorGetVideoInfo(descriptor, &result.video));
  } else if (result.info.mediaType == kSound) {
    document.Check(QiroK7MSampleDescriptorGetAudioInfo(descriptor, &result.audio));
  }
  return result;
}

// What the structs hold, as something that can be compared.
auto FieldsOf(const QiroK7MVideoSampleDescInfo& info) {
  return std::tuple(info.width, info.height, info.horizontalResolution, info.verticalResolution,
                    info.frameCount, info.depth);
}

auto FieldsOf(const QiroK7MAudioSampleDescInfo& info) {
  return std::tuple(info.sampleRate, info.channelCount, info.sampleSize);
}

bool IsSame(const Description& a, const Description& b) {
  return a.info.type == b.info.type && a.header == b.header &&
         FieldsOf(a.video) == FieldsOf(b.video) && FieldsOf(a.audio) == FieldsOf(b.audio);
}

[[noreturn]] void Refuse(const Document& document, const Track& track, const std::string& problem) {
  throw FileFailure(document.File().Path(),
                    "track " + std::to_string(track.number) + ": " + problem);
}

// "track 2 of live.k7r"
std::string NameOf(const Document& recording, const Track& track) {
  return "track " + std::to_string(track.number) + " of " + recording.File().Path();
}

// Null when there are not so many.
const Track* FindTrack(const Document& recording, uint32_t mediaType, size_t index) {
  for (const Track& track : recording.Tracks()) {
    if (track.info.mediaType != mediaType) continue;
    if (index == 0) return &track;
    --index;
  }
  return nullptr;
}

std::vector<size_t> MatchDescriptions(const Document& document, const Track& track,
                                      const Document& recording, const Track& match) {
  std::vector<Description> all;
  for (QiroK7MSampleDescriptor* each : match.descriptors) all.push_back(Describe(recording, each));
  std::vector<size_t> result;
  for (QiroK7MSampleDescriptor* each : track.descriptors) {
    const Description wanted = Describe(document, each);
    const auto found = std::find_if(all.begin(), all.end(), [&wanted](const Description& other) {
      return IsSame(wanted, other);
    });
    if (found == all.end()) {
      Refuse(document, track,
             "its description " + std::to_string(result.size() + 1) + " (" +
                 FourCharacters(wanted.info.type) + ") is none of " + NameOf(recording, match));
    }
    result.push_back(static_cast<size_t>(found - all.begin()));
  }
  return result;
}

TrackMatch Match(const Document& document, const Track& track, const Document& recording,
                 const Track* match) {
  if (match == nullptr) {
    Refuse(document, track,
           recording.File().Path() + " has no such track of type '" +
               FourCharacters(track.info.mediaType) + "'");
  }
  if (track.info.timeScale != match->info.timeScale) {
    Refuse(document, track,
           "its time scale is " + std::to_string(track.info.timeScale) + ", that of " +
               NameOf(recording, *match) + " is " + std::to_string(match->info.timeScale));
  }
  return {match->number - 1, MatchDescriptions(document, track, recording, *match)};
}

}  // namespace

std::vector<std::optional<TrackMatch>> MatchTracks(const Document& document, const RemuxPlan& plan,
                                                   const Document& recording) {
  std::vector<std::optional<TrackMatch>> matches(plan.tracks.size());
  std::vector<bool> goesOn(recording.Tracks().size());
  for (size_t i = 0; i < plan.tracks.size(); ++i) {
    const Track& track = *plan.tracks[i].track;
    const auto end = plan.tracks.begin() + static_cast<ptrdiff_t>(i);
    const auto before = std::count_if(plan.tracks.begin(), end, [&track](const TrackPlan& other) {
      return other.track->info.mediaType == track.info.mediaType;
    });
    if (plan.tracks[i].sampleCount == 0) continue;
    const Track* match = FindTrack(recording, track.info.mediaType, static_cast<size_t>(before));
    matches[i] = Match(document, track, recording, match);
    goesOn[matches[i]->track] = true;
  }
  for (const Track& track : recording.Tracks()) {
    if (goesOn[track.number - 1] || track.info.mediaType == kHint) continue;
    PrintTrackMessage(recording.File().Path(), track.number,
                      document.File().Path() + " has nothing to go on with");
  }
  return matches;
}

}  // namespace qiro::k7m::tool
