/// @file random_fragments.h
/// Whole fragmented files with random fragments around and behind a random movie box.
#ifndef K7M_TESTS_READER_RANDOM_FRAGMENTS_H
#define K7M_TESTS_READER_RANDOM_FRAGMENTS_H

#include "fragment_model.h"
#include "random_movie.h"

namespace k7mtest {

struct RandomFragmentedFile {
  ModelMovie movie;
  ModelFragments fragments;
  /// The movie with the fragments' times in its time tables, to ask questions by.
  ModelMovie timing;
  Bytes bytes;
  uint64_t mdatOffset = 0;
};

RandomFragmentedFile MakeRandomFragmentedFile(Dice& dice);

}  // namespace k7mtest

#endif
