/// @file document_content.h
/// Everything that the library tells about a document, in a form that can be compared.
#pragma once

#include <k7m/k7m.h>

#include <optional>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace k7mtest {

struct DescriptionContent {
  QiroK7MSampleDescInfo info{};
  QiroK7MVideoSampleDescInfo video{};  ///< All 0 unless the track is a video track.
  QiroK7MAudioSampleDescInfo audio{};  ///< All 0 unless the track is a sound track.
  Bytes header;
};

struct SampleContent {
  QiroK7MSampleInfo info{};
  size_t description = 0;  ///< From 1; 0: none.
  Bytes data;
};

struct TrackContent {
  QiroK7MTrackInfo info{};
  QiroK7MTrackEntriesInfo entries{};
  std::string handlerName;
  std::vector<QiroK7MEdit> edits;
  std::vector<DescriptionContent> descriptions;
  std::vector<SampleContent> samples;
  /// Media time of the first sample, which the times of the samples are counted from: a copy's
  /// start at 0. Only fragments can begin later. 0 for presented samples.
  uint64_t mediaStart = 0;

  /// Whether no other sample follows a key sample: in a fragmented document those before are then
  /// in the movie box and have no table. In a plain one: whether there is no key sample.
  bool IsAllKey(bool isFragmented) const;
  /// Seconds from the begin of the presentation to the first sample; negative when an edit skips a
  /// begin.
  double Start(uint32_t movieScale) const;
};

struct DocumentContent {
  QiroK7MDocInfo info{};
  Bytes metadata;
  std::vector<TrackContent> tracks;
};

enum class Samples { kMedia, kPresented };

/// Reads a file, a fragmented one by the rules of the standard. None when the library answers with
/// an error, which is then stored.
std::optional<DocumentContent> ReadContent(const std::string& path, QiroK7MError* error,
                                           Samples which = Samples::kMedia);

/// What a copy lacks or has too much of; empty when it is a faithful one. Samples without bytes are
/// not expected in it, and where the source tells of none that depends on another all of its
/// samples have to be key samples. A fragmented copy has no dependencies.
std::string CopyDifference(const DocumentContent& source, const DocumentContent& copy);

}  // namespace k7mtest
