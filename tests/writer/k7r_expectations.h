/// @file k7r_expectations.h
/// The boxes of a K7R file as a writer must put them.
#ifndef K7M_TESTS_WRITER_K7R_EXPECTATIONS_H
#define K7M_TESTS_WRITER_K7R_EXPECTATIONS_H

#include "fragment_expectations.h"
#include "support/opened_k7r_writer.h"

namespace k7mtest {

struct AccessEntry {
  uint64_t time;
  uint64_t offset;
};

inline Bytes ExpectedAfra(uint32_t timeScale, const std::vector<AccessEntry>& entries) {
  Bytes payload;
  payload.U8(0xC0).U32(timeScale).U32(entries.size());
  for (const AccessEntry& entry : entries) payload.U64(entry.time).U64(entry.offset);
  return FullBox("afra", 0, 0, payload);
}

inline constexpr size_t kEmptyAfraSize = 21;

/// The boxes behind the movie box by their codes.
inline std::vector<std::string> CodesBehindMoov(const Bytes& file) {
  const std::vector<std::string> codes = CodesIn(file);
  return {codes.begin() + 2, codes.end()};
}

/// A K7R file with a video track that the hint track serves.
struct K7RSetup {
  explicit K7RSetup(uint32_t timeOrigin = 0, const NewTrack& track = {})
      : video(writer.AddDescribedTrack(track)),
        hint(writer.AddDescribedHintTrack({video}, timeOrigin)) {}

  OpenedK7RWriter writer;
  QiroK7MTrack* video;
  QiroK7MTrack* hint;
};

}  // namespace k7mtest

#endif
