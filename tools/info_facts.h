/// @file info_facts.h
/// What `k7m info` shows, and its two forms.
#pragma once

#include <k7m/k7m.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "json_text.h"
#include "media_time.h"
#include "media_types.h"
#include "text_format.h"

namespace qiro::k7m::tool {

struct DescriptionFacts {
  QiroK7MSampleDescInfo info{};
  std::optional<QiroK7MVideoSampleDescInfo> video;
  std::optional<QiroK7MAudioSampleDescInfo> audio;
};

struct TrackFacts {
  uint32_t number = 0;
  QiroK7MTrackInfo info{};
  QiroK7MTrackEntriesInfo entries{};
  std::string handlerName;
  uint32_t editCount = 0;
  std::vector<DescriptionFacts> descriptions;
  // In the track's scale, where the samples of the fragments go on behind the duration that the
  // header gives. The last sample is taken to last as long as the one before it.
  std::optional<uint64_t> durationOfSamples;
  // Without a value where the file did not let them be found out, and where fragments are skipped.
  std::optional<uint32_t> sampleCount;
  std::optional<uint64_t> byteCount;
  std::optional<double> bitRate;

  MediaTime Duration() const { return {durationOfSamples.value_or(info.duration), info.timeScale}; }
};

struct DocumentFacts {
  std::string path;
  std::optional<QiroK7MDocInfo> info;
  // The fragments of a document on a server are counted, and their samples, only when the user asks
  // for it. Their number has no value then, nor has what the tracks hold, nor a metadata packet
  // that does not stand before them.
  bool areFragmentsSkipped = false;
  std::optional<uint64_t> fragmentCount;
  // In the movie's scale, where a track has one.
  std::optional<uint64_t> durationOfSamples;
  std::optional<uint32_t> metadataLength;
  std::vector<TrackFacts> tracks;
};

std::string InfoText(const DocumentFacts& facts);
Json InfoJson(const DocumentFacts& facts);

}  // namespace qiro::k7m::tool
