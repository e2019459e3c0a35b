/// @file small_fragments.h
/// Fragmented documents as most programs write them: nothing in the movie box but the tracks, data
/// offsets counted from the 'moof', start times in 'tfdt'.
#pragma once

#include "support/movie_builder.h"

namespace k7mtest {

/// Samples that a track has in a fragment.
struct TestRun {
  uint32_t track = 1;
  uint64_t time = 0;  ///< Of the first one, in the track's scale.
  std::vector<TestSample> samples = {};
};

/// A 'moof' with a 'traf' for every run, and its 'mdat'.
Bytes Fragment(const std::vector<TestRun>& runs);

/// What SmallFragments() consists of, for those who want to change it. Track 1: 'vide', a sample of
/// 40 ms at 0, 40, 80, 120, 160; track 2: 'soun', a sample of 20 ms at 0, 20 ... 180. Three
/// fragments, which begin at 0, 80 and 160 ms, the first and the last with a key picture. All
/// durations in the movie box are 0.
Movie SmallFragmentedMovie();
/// The fragments of SmallFragmentedMovie(), all times later by `delay` ms.
Bytes SmallFragments(uint64_t delay = 0);
/// All samples of a track of SmallFragments(), one behind the other.
Bytes SmallFragmentsMedia(uint32_t track);
/// The whole file.
Bytes SmallFragmentedFile();

}  // namespace k7mtest
