/// @file sample_model.h
/// What the sample queries must deliver, worked out the slow way: every table is expanded to one
/// value a sample. Shares no code with the library.
#ifndef K7M_TESTS_READER_SAMPLE_MODEL_H
#define K7M_TESTS_READER_SAMPLE_MODEL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/box_records.h"

namespace k7mtest {

/// The tables of a track as they stand in the file.
struct ModelTrack {
  std::string handler = "vide";
  uint32_t timeScale = 1000;
  uint64_t headerDuration = 0;  // 'tkhd', movie time scale.
  std::vector<Stts::Run> times;
  std::vector<Stsc::Run> chunkMap;
  Stsz sizes;
  std::vector<uint64_t> chunkOffsets;
  std::optional<std::vector<Ctts::Run>> compositionOffsets;
  std::optional<std::vector<uint32_t>> syncSamples;
  std::optional<std::vector<uint8_t>> dependencies;
  std::optional<std::vector<Elst::Entry>> edits;
  uint32_t descriptionCount = 1;
};

struct ModelMovie {
  uint32_t timeScale = 1000;
  std::vector<ModelTrack> tracks;
};

struct ModelTime {
  uint64_t value;
  uint32_t scale;
};

struct ModelSample {
  size_t track = 0;
  uint64_t timeStamp = 0;
  uint32_t size = 0;
  uint32_t compositionOffset = 0;
  uint32_t flags = 0;
  uint32_t description = 0;  // 1-based; 0: none.
  uint64_t offset = 0;       // In the file.
};

/// Nearest whole number, an exact half down for an even divisor; the product wraps.
uint64_t ConvertTime(uint64_t value, uint32_t from, uint32_t to);
/// Video, then sound, then the others.
std::vector<size_t> InDeliveryOrder(const ModelMovie& movie, const std::vector<size_t>& tracks);

/// The samples of some tracks (in the order of the query) between two times.
std::vector<ModelSample> ExpectSamples(const ModelMovie& movie, ModelTime start, ModelTime end,
                                       const std::vector<size_t>& tracks);
/// The samples as they lie in the file.
std::vector<ModelSample> ExpectMediaSamples(const ModelMovie& movie,
                                            const std::vector<size_t>& tracks);

}  // namespace k7mtest

#endif
