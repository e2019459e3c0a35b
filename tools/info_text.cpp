#include <algorithm>
#include <cmath>

#include "info_facts.h"

namespace qiro::k7m::tool {
namespace {

constexpr size_t kLabelWidth = 16;
constexpr const char* kSkipped = "not counted over http (see --count-fragments)";

// One indented line: a label, then what is said about it.
std::string Line(std::string label, const std::string& value) {
  label.resize(std::max(kLabelWidth, label.size() + 1), ' ');
  return "  " + label + value + "\n";
}

// The header of a fragmented document may leave the fragments out.
std::string DurationText(MediaTime stored, const std::optional<uint64_t>& ofSamples,
                         bool areFragmentsSkipped) {
  const auto text = [](MediaTime time) {
    return SecondsText(time) + " s (" + std::to_string(time.value) + ")";
  };
  if (areFragmentsSkipped) return text(stored) + " by the header, samples not counted";
  if (!ofSamples) return text(stored);
  return text({*ofSamples, stored.scale}) + " by the samples, " + text(stored) + " by the header";
}

std::string FragmentText(const DocumentFacts& facts) {
  if (facts.info->isFragmented == 0) return "no";
  if (!facts.fragmentCount) return std::string("yes, fragments ") + kSkipped;
  return "yes, " + CountText(*facts.fragmentCount, "fragment");
}

std::string HeaderText(const DocumentFacts& facts) {
  const QiroK7MDocInfo& info = *facts.info;
  return Line("created", DateText(info.creationTime)) +
         Line("modified", DateText(info.modificationTime)) +
         Line("time scale", std::to_string(info.timeScale)) +
         Line("duration", DurationText({info.duration, info.timeScale}, facts.durationOfSamples,
                                       facts.areFragmentsSkipped)) +
         Line("play rate", NumberText(info.playRate)) + Line("volume", NumberText(info.volume)) +
         Line("fragmented", FragmentText(facts));
}

std::string DescriptionText(const DescriptionFacts& facts) {
  std::string text = FourCharacters(facts.info.type);
  if (facts.video) {
    const auto& video = *facts.video;
    text += ", " + std::to_string(video.width) + " x " + std::to_string(video.height) + ", " +
            NumberText(video.horizontalResolution) + " x " + NumberText(video.verticalResolution) +
            " dpi, depth " + std::to_string(video.depth) + ", " +
            CountText(video.frameCount, "frame") + " a sample";
  }
  if (facts.audio) {
    const auto& audio = *facts.audio;
    text += ", " + NumberText(audio.sampleRate) + " Hz, " +
            CountText(audio.channelCount, "channel") + ", " + CountText(audio.sampleSize, "bit");
  }
  return text + ", codec header " + CountText(facts.info.codecHeaderDataLength, "byte");
}

std::string EditText(const TrackFacts& facts) {
  if (facts.editCount == 0) return "none";
  const std::string entries =
      std::to_string(facts.editCount) + (facts.editCount == 1 ? " entry" : " entries");
  return entries + ", " + CountText(facts.entries.gapCount, "gap");
}

std::string TrackText(const TrackFacts& facts, bool areFragmentsSkipped) {
  const QiroK7MTrackInfo& info = facts.info;
  std::string text = "track " + std::to_string(facts.number) + "\n";
  text += Line("media type", FourCharacters(info.mediaType));
  text += Line("handler", Printable(facts.handlerName));
  text += Line("language", Printable(std::string(info.language, 3)));
  text += Line("flags", std::to_string(info.flags));
  text += Line("created", DateText(info.creationTime));
  text += Line("modified", DateText(info.modificationTime));
  text += Line("time scale", std::to_string(info.timeScale));
  text += Line("duration", DurationText({info.duration, info.timeScale}, facts.durationOfSamples,
                                        areFragmentsSkipped));
  text += Line("dimensions", NumberText(info.width) + " x " + NumberText(info.height));
  text += Line("volume", NumberText(info.volume));
  for (size_t i = 0; i < facts.descriptions.size(); ++i) {
    text += Line("description " + std::to_string(i + 1), DescriptionText(facts.descriptions[i]));
  }
  text += Line("edit list", EditText(facts));
  text += Line("dependencies", (info.trackFlags & 1) != 0 ? "yes" : "no");
  const std::string none = areFragmentsSkipped ? "not counted over http" : "unknown";
  text += Line("samples", facts.sampleCount ? std::to_string(*facts.sampleCount) : none);
  text += Line("media bytes", facts.byteCount ? std::to_string(*facts.byteCount) : none);
  text += Line("bit rate",
               facts.bitRate ? std::to_string(std::llround(*facts.bitRate)) + " bit/s" : none);
  return text;
}

}  // namespace

std::string InfoText(const DocumentFacts& facts) {
  std::string text = Printable(facts.path) + "\n";
  if (facts.info) text += HeaderText(facts);
  const std::string none =
      facts.areFragmentsSkipped ? "none before the fragments; not looked for behind" : "unknown";
  text += Line("metadata", facts.metadataLength ? CountText(*facts.metadataLength, "byte") : none);
  for (const TrackFacts& track : facts.tracks) text += TrackText(track, facts.areFragmentsSkipped);
  return text;
}

}  // namespace qiro::k7m::tool
