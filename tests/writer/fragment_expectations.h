/// @file fragment_expectations.h
/// The boxes of fragments as a writer must put them.
#ifndef K7M_TESTS_WRITER_FRAGMENT_EXPECTATIONS_H
#define K7M_TESTS_WRITER_FRAGMENT_EXPECTATIONS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/box_finder.h"
#include "support/box_records.h"
#include "support/opened_writer.h"

namespace k7mtest {

inline constexpr uint32_t kKeyInRun = 0x02000000;
inline constexpr uint32_t kOtherInRun = 0x01010000;

inline QiroK7MDocInfo FragmentedInfo(uint32_t timeScale = 1000) {
  QiroK7MDocInfo info = DocInfoOf(timeScale);
  info.isFragmented = 1;
  return info;
}

/// Samples whose bytes follow each other; `offset` is counted from the fragment's base.
struct ExpectedRun {
  int32_t offset = 0;
  std::vector<Trun::Sample> samples = {};
};

inline Bytes ExpectedTraf(uint32_t trackId, uint64_t base, const std::vector<ExpectedRun>& runs,
                          uint32_t description = 1) {
  Bytes boxes = FullBox(
      "tfhd", 0, 3, Tfhd{.trackId = trackId, .baseDataOffset = base, .description = description});
  for (const ExpectedRun& run : runs) {
    boxes.Append(FullBox("trun", 0, 0xF01, Trun{.dataOffset = run.offset, .samples = run.samples}));
  }
  return Box("traf", boxes);
}

template <class... Trafs>
Bytes ExpectedMoof(uint32_t sequenceNumber, const Trafs&... trafs) {
  return Box("moof", FullBox("mfhd", 0, 0, Mfhd{.sequenceNumber = sequenceNumber}), trafs...);
}

struct IndexEntry {
  uint64_t time;
  uint64_t moof;
  uint32_t traf;
  uint32_t trun;
  uint32_t sample;
};

inline Bytes ExpectedTfra(uint32_t trackId, const std::vector<IndexEntry>& entries) {
  Bytes payload;
  payload.U32(trackId).U32(63).U32(entries.size());
  for (const IndexEntry& entry : entries) {
    payload.U64(entry.time).U64(entry.moof).U32(entry.traf).U32(entry.trun).U32(entry.sample);
  }
  return FullBox("tfra", 1, 0, payload);
}

template <class... Tfras>
Bytes ExpectedMfra(const Tfras&... tfras) {
  Bytes content;
  (content.Append(tfras), ...);
  const size_t size = 8 + content.Size() + 16;
  return Box("mfra", content, FullBox("mfro", 0, 0, Bytes().U32(size)));
}

/// Where the boxes behind the movie box start.
inline size_t EndOfMoov(const Bytes& file) {
  const BoxPlace moov = PlaceOf(file, "moov");
  return moov.offset + moov.size;
}

/// What follows the movie box.
inline Bytes BehindMoov(const Bytes& file) {
  return file.Slice(EndOfMoov(file), file.Size() - EndOfMoov(file));
}

/// The duration of a sample in the file, all numbers from 1.
inline uint64_t DurationIn(const Bytes& file, size_t moof, size_t traf, size_t trun,
                           size_t sample) {
  return NumberIn(file,
                  "moof#" + std::to_string(moof) + "/traf#" + std::to_string(traf) + "/trun#" +
                      std::to_string(trun),
                  20 + 16 * (sample - 1));
}

}  // namespace k7mtest

#endif
