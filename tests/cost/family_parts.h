/// @file family_parts.h
/// What the families are put together from.
#ifndef K7M_TESTS_COST_FAMILY_PARTS_H
#define K7M_TESTS_COST_FAMILY_PARTS_H

#include "support/fragment_builder.h"
#include "support/fragment_file.h"

namespace k7mtest {

template <class Make>
Bytes Times(uint32_t count, Make make) {
  Bytes all;
  for (uint32_t i = 0; i < count; ++i) all.Append(make(i));
  return all;
}
inline Bytes Times(uint32_t count, const Bytes& bytes) {
  return Times(count, [&bytes](uint32_t) -> const Bytes& { return bytes; });
}

/// A track whose tables say: `count` samples of 4 bytes, 10 time units each, one chunk each.
inline Track SteadyTrack(uint32_t count) {
  Track track{.samples = {SampleOf(4)}, .duration = uint64_t{count} * 10};
  Stsc chunks;
  Stts times;
  for (uint32_t i = 0; i < count; ++i) {
    chunks.runs.push_back({i + 1, 1, 1});
    times.runs.push_back({1, 10 + i % 2});
  }
  track.replace["stts"] = FullBox("stts", 0, 0, times);
  track.replace["stsc"] = FullBox("stsc", 0, 0, chunks);
  track.replace["stsz"] = FullBox("stsz", 0, 0, Stsz{.sizes = std::vector<uint32_t>(count, 4)});
  // All chunks at the one sample that is there.
  track.chunkOffsets = [count](const std::vector<uint64_t>& offsets) {
    return FullBox("stco", 0, 0,
                   Stco{.offsets = std::vector(count, static_cast<uint32_t>(offsets.at(0)))});
  };
  return track;
}

inline Bytes FileWith(const Track& track) { return BuildMovie({.tracks = {track}}).bytes; }

/// A steady track with one box replaced.
inline Bytes FileWithTable(uint32_t count, const std::string& code, const Bytes& box) {
  Track track = SteadyTrack(count);
  if (code == "stco" || code == "co64") {
    track.chunkOffsets = [box](const std::vector<uint64_t>&) { return box; };
  } else {
    track.replace[code] = box;
  }
  return FileWith(track);
}

/// A table whose entries are all of one size.
struct Table {
  const char* code;
  uint32_t entrySize;
  uint32_t fieldsBeforeCount;  // Each of 4 bytes.
};
inline constexpr Table kTables[] = {{"stts", 8, 0}, {"ctts", 8, 0}, {"stss", 4, 0}, {"stsz", 4, 1},
                                    {"stco", 4, 0}, {"co64", 8, 0}, {"stsc", 12, 0}};

inline Bytes TableOf(const Table& table, uint32_t count, const Bytes& entries) {
  return FullBox(table.code, 0, 0, Bytes().Fill(4 * size_t{table.fieldsBeforeCount}).U32(count),
                 entries);
}

/// The recording that is in order, beside the bad files.
inline FragmentFile GoodRecording() { return SomeFragments(8); }

inline Bytes FragmentedFile(const Bytes& fragments,
                            const Trex& defaults = {.duration = 10, .size = 4}) {
  return BuildMovie(FragmentedMovie({{.duration = 1000000}}, defaults)).bytes + fragments;
}

}  // namespace k7mtest

#endif
