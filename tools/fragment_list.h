/// @file fragment_list.h
/// Where the fragments of a K7R file lie, by the headers of its top-level boxes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "file_stream.h"

namespace qiro::k7m::tool {

struct FragmentPlace {
  uint64_t offset = 0;  ///< Of its 'afra' box in the file.
  uint64_t time = 0;    ///< Of its first random access entry; without one that of the one before.
};

struct FragmentList {
  uint32_t timeScale = 0;  ///< Of all times: that of the first fragment.
  std::vector<FragmentPlace> fragments;
  bool isLastCutOff = false;  ///< The file ends inside a further fragment.
};

/// Lists the fragments, in file order. Throws when boxes stand where no index could serve them.
FragmentList ListFragments(FileStream* file);

/// Throws when the file has fragments and the first one is none of a K7R file.
void RefuseOtherFragments(FileStream* file);

}  // namespace qiro::k7m::tool
