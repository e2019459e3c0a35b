/// @file fragment_files.h
/// Small fragmented files and what queries find in them.
#ifndef K7M_TESTS_READER_FRAGMENT_FILES_H
#define K7M_TESTS_READER_FRAGMENT_FILES_H

#include "support/fragment_builder.h"
#include "support/opened_reader.h"

namespace k7mtest {

using Times = std::vector<uint64_t>;

/// Samples of 10 units and 4 bytes that are key samples.
inline constexpr Trex kDefaults = {.duration = 10, .size = 4};

inline Movie OneTrack(uint64_t duration = 1000) {
  return FragmentedMovie({{.duration = duration}}, kDefaults);
}

inline Movie TwoTracks() {
  return FragmentedMovie({{.duration = 1000}, {.handler = "soun", .duration = 1000}}, kDefaults);
}

inline Bytes FileOf(Movie movie, const Bytes& fragments) {
  movie.atEnd = fragments;
  return BuildMovie(movie).bytes;
}

inline Bytes TrafOf(uint32_t trackId, uint32_t count) {
  return Traf(0, Tfhd{.trackId = trackId}, DefaultRun(count));
}

inline Bytes MoofOf(uint32_t trackId, uint32_t count) { return Moof(TrafOf(trackId, count)); }

inline Times AllTimes(const Bytes& file) { return TimeStamps(AllSamples(OpenedReader(file))); }

inline Times TimesBetween(const Bytes& file, uint64_t start, uint64_t end) {
  OpenedReader reader(file);
  return TimeStamps(SamplesBetween(reader, 1000, start, 1000, end));
}

inline QiroK7MSampleIterator* IterateAll(const OpenedReader& reader) {
  QiroK7MSampleIterator* iterator = nullptr;
  EXPECT_EQ(QiroK7MReaderGetAllSamples(reader.Handle(), &iterator), 0u);
  return iterator;
}

inline QiroK7MError Next(QiroK7MSampleIterator* iterator, ReadSample* taken = nullptr) {
  QiroK7MSample* sample = nullptr;
  const QiroK7MError result = QiroK7MSampleIteratorGetNextEntry(iterator, &sample);
  if (sample != nullptr) {
    const ReadSample read = TakeSample(sample, false);
    if (taken != nullptr) *taken = read;
  }
  return result;
}

}  // namespace k7mtest

#endif
