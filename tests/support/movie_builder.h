/// @file movie_builder.h
/// Whole plain files from lists of samples, with a hand on every table.
#ifndef K7M_TESTS_SUPPORT_MOVIE_BUILDER_H
#define K7M_TESTS_SUPPORT_MOVIE_BUILDER_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "box_records.h"

namespace k7mtest {

struct TestSample {
  Bytes data;
  uint32_t delta = 10;  // Media time scale.
  uint32_t compositionOffset = 0;
  bool isSync = true;
  uint32_t description = 1;
  uint8_t dependency = 0;
};

/// Boxes by four-character code ('mediaheader' for whichever media header) that take the place of
/// the generated ones; empty bytes leave the box out.
using Replacements = std::map<std::string, Bytes>;

struct Track {
  std::string handler = "vide";
  std::string handlerName = std::string("handler\0", 8);
  uint32_t id = 0;  // 0: the position in the movie, from 1.
  uint32_t flags = 7;
  uint32_t timeScale = 1000;
  std::vector<TestSample> samples = {};
  /// Samples of equal description are put into chunks of this size; the last one may be smaller.
  uint32_t samplesPerChunk = 1;
  std::vector<Bytes> descriptions = {};   // None: one that fits the handler.
  std::vector<Elst::Entry> edits = {};    // None: no 'edts'.
  std::optional<uint64_t> duration = {};  // 'tkhd', movie scale. None: the sum of the deltas.
  uint32_t width = 0;                     // 16.16
  uint32_t height = 0;                    // 16.16
  uint16_t volume = 0;                    // 8.8
  bool has64BitOffsets = false;           // 'co64' instead of 'stco'.
  bool hasStss = false;                   // Otherwise only when a sample is not a sync sample.
  bool hasCtts = false;                   // Otherwise only when an offset is not 0.
  bool hasSdtp = false;                   // Otherwise only when a dependency is not 0.
  bool hasConstantSize = false;           // 'stsz' without a table; the first sample's size.
  Replacements replace = {};              // 'tkhd', 'edts', 'mdia', 'mdhd', ... 'stts', ...
  /// Makes the chunk offset box from the true offsets; must not depend on them in size.
  std::function<Bytes(const std::vector<uint64_t>&)> chunkOffsets = {};
  Bytes moreInTrak = {};  // Boxes behind the others.
  Bytes moreInStbl = {};
};

struct Movie {
  uint32_t timeScale = 1000;
  std::optional<uint64_t> duration = {};  // None: that of the longest track.
  std::vector<Track> tracks = {};
  bool isMovieBoxLast = false;  // 'mdat' before 'moov'.
  bool hasLargeMdat = false;    // 'mdat' in the 64-bit size form.
  Replacements replace = {};    // 'ftyp', 'mvhd'.
  Bytes moreInMoov = {};        // Boxes behind the tracks.
  Bytes betweenBoxes = {};      // Top-level boxes behind the second-last of the three.
  Bytes atEnd = {};             // Top-level boxes at the end.
};

struct MovieFile {
  Bytes bytes;
  std::vector<std::vector<uint64_t>> sampleOffsets;  // By track, by sample.
  uint64_t movieOffset = 0;                          // Of the 'moov' box.
  uint64_t mdatOffset = 0;                           // Of the 'mdat' box.
};

/// 'ftyp', 'moov' and 'mdat'; the chunks of the tracks are interleaved one by one.
MovieFile BuildMovie(const Movie& movie);

/// A sample whose bytes are a pattern of the given seed.
inline TestSample SampleOf(size_t size, uint32_t delta = 10, uint32_t seed = 1) {
  return {.data = Pattern(size, seed), .delta = delta};
}

/// `count` samples of growing size with different bytes.
std::vector<TestSample> SomeSamples(size_t count, uint32_t delta = 10, uint32_t seed = 1);

}  // namespace k7mtest

#endif
