/// @file info_facts.h
/// What `k7m info` shows, and its two forms.
#pragma once

#include <k7m/k7m.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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
  // Without a value where the file did not let them be found out.
  std::optional<uint32_t> sampleCount;
  std::optional<uint64_t> byteCount;
  std::optional<double> bitRate;
};

struct DocumentFacts {
  std::string path;
  std::optional<QiroK7MDocInfo> info;
  std::optional<uint32_t> metadataLength;
  std::vector<TrackFacts> tracks;
};

std::string InfoText(const DocumentFacts& facts);
Json InfoJson(const DocumentFacts& facts);

}  // namespace qiro::k7m::tool
