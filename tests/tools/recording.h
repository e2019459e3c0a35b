/// @file recording.h
/// What is in a K7R file that the program has written, read without the library.
#pragma once

#include <string>
#include <vector>

#include "support/bytes.h"

namespace k7mtest {

struct AccessPoint {
  uint64_t time = 0;
  uint64_t offset = 0;  ///< In the file.
};

/// A fragment by its boxes, headers included.
struct RecordedFragment {
  size_t offset = 0;
  uint32_t timeScale = 0;  ///< Of its 'afra'.
  std::vector<AccessPoint> points;
  Bytes bootstrap;  ///< Payload of its 'abst'; empty without one.
  Bytes bytes;      ///< All of it.
};

/// The fragments of a file. Fails the test when other boxes stand between or behind them.
std::vector<RecordedFragment> FragmentsOf(const Bytes& file);

}  // namespace k7mtest
