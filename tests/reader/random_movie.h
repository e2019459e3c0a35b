/// @file random_movie.h
/// Whole files with random tables, irregular ones included, and random questions about them.
#ifndef K7M_TESTS_READER_RANDOM_MOVIE_H
#define K7M_TESTS_READER_RANDOM_MOVIE_H

#include <random>

#include "sample_model.h"
#include "support/movie_builder.h"

namespace k7mtest {

/// Random numbers that are the same with every standard library.
class Dice {
 public:
  explicit Dice(uint32_t seed) : engine_(seed) {}

  /// From 0 to `count` - 1.
  uint32_t Below(uint32_t count) { return static_cast<uint32_t>(engine_()) % count; }
  uint32_t Between(uint32_t least, uint32_t most) { return least + Below(most - least + 1); }
  bool OneIn(uint32_t count) { return Below(count) == 0; }
  template <class T>
  T Pick(std::initializer_list<T> values) {
    return values.begin()[Below(static_cast<uint32_t>(values.size()))];
  }

 private:
  std::mt19937 engine_;
};

struct RandomFile {
  ModelMovie movie;
  Bytes bytes;
  uint64_t mdatOffset = 0;
};

RandomFile MakeRandomFile(Dice& dice);

// The parts of such a file.
uint32_t MakeRandomScale(Dice& dice);
ModelTrack MakeRandomTrack(Dice& dice, uint32_t movieScale);
/// Edits of a track whose time table is regular.
std::vector<Elst::Entry> MakeRandomEdits(Dice& dice, const ModelTrack& track, uint32_t movieScale);
/// The track for the movie builder; chunk offsets are counted from `mediaStart`.
Track Described(const ModelTrack& model, uint64_t mediaStart, bool has64BitOffsets);

/// A time near an edit, a sample or nothing in particular.
ModelTime MakeRandomTime(Dice& dice, const ModelMovie& movie);

}  // namespace k7mtest

#endif
