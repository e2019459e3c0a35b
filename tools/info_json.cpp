#include <cmath>
#include <nlohmann/json.hpp>

#include "info_facts.h"

#include "text_format.h"

namespace qiro::k7m::tool {
namespace {

template <class Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

std::string DateJson(const QiroK7MDateTime& date) {
  std::string text = DateText(date) + "Z";
  text[text.find(' ')] = 'T';
  return text;
}

// Where a duration comes from: the header of a fragmented document may leave the fragments out.
std::string OriginOf(const std::optional<uint64_t>& durationOfSamples) {
  return durationOfSamples ? "samples" : "header";
}

Json HeaderJson(const DocumentFacts& facts) {
  const QiroK7MDocInfo& info = *facts.info;
  const uint64_t duration = facts.durationOfSamples.value_or(info.duration);
  return {{"creationTime", DateJson(info.creationTime)},
          {"modificationTime", DateJson(info.modificationTime)},
          {"timeScale", info.timeScale},
          {"duration", duration},
          {"seconds", Seconds({duration, info.timeScale})},
          {"durationFrom", OriginOf(facts.durationOfSamples)},
          {"playRate", info.playRate},
          {"volume", info.volume},
          {"isFragmented", info.isFragmented != 0},
          {"fragmentCount", OrNull(facts.fragmentCount)}};
}

Json DescriptionJson(const DescriptionFacts& facts) {
  Json json = {{"type", FourCharacters(facts.info.type)},
               {"codecHeaderLength", facts.info.codecHeaderDataLength}};
  if (facts.video) {
    json["video"] = {{"width", facts.video->width},
                     {"height", facts.video->height},
                     {"horizontalResolution", facts.video->horizontalResolution},
                     {"verticalResolution", facts.video->verticalResolution},
                     {"frameCount", facts.video->frameCount},
                     {"depth", facts.video->depth}};
  }
  if (facts.audio) {
    json["audio"] = {{"sampleRate", facts.audio->sampleRate},
                     {"channelCount", facts.audio->channelCount},
                     {"sampleSize", facts.audio->sampleSize}};
  }
  return json;
}

Json TrackJson(const TrackFacts& facts) {
  const QiroK7MTrackInfo& info = facts.info;
  Json descriptions = Json::array();
  for (const DescriptionFacts& description : facts.descriptions) {
    descriptions.push_back(DescriptionJson(description));
  }
  return {{"number", facts.number},
          {"mediaType", FourCharacters(info.mediaType)},
          {"handlerName", facts.handlerName},
          {"language", std::string(info.language, 3)},
          {"flags", info.flags},
          {"creationTime", DateJson(info.creationTime)},
          {"modificationTime", DateJson(info.modificationTime)},
          {"timeScale", info.timeScale},
          {"duration", facts.Duration().value},
          {"seconds", Seconds(facts.Duration())},
          {"durationFrom", OriginOf(facts.durationOfSamples)},
          {"width", info.width},
          {"height", info.height},
          {"volume", info.volume},
          {"descriptions", descriptions},
          {"edits", {{"count", facts.editCount}, {"gaps", facts.entries.gapCount}}},
          {"hasDependencies", (info.trackFlags & 1) != 0},
          {"sampleCount", OrNull(facts.sampleCount)},
          {"mediaBytes", OrNull(facts.byteCount)},
          {"bitRate", facts.bitRate ? Json(std::llround(*facts.bitRate)) : Json(nullptr)}};
}

}  // namespace

Json InfoJson(const DocumentFacts& facts) {
  Json tracks = Json::array();
  for (const TrackFacts& track : facts.tracks) tracks.push_back(TrackJson(track));
  return {{"file", facts.path},
          {"document", facts.info ? HeaderJson(facts) : Json(nullptr)},
          {"metadataLength", OrNull(facts.metadataLength)},
          {"tracks", tracks}};
}

}  // namespace qiro::k7m::tool
