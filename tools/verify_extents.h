/// @file verify_extents.h
/// Stretches of sample data in a file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace qiro::k7m::tool {

/// Samples of one track that lie one behind the other.
struct Extent {
  uint64_t begin = 0;
  uint64_t end = 0;
  double seconds = 0;     ///< Decode time of the first sample.
  double endSeconds = 0;  ///< Decode time behind the last one.
  uint32_t track = 0;     ///< Index in the movie.

  /// The whole second in which the first sample is decoded.
  int64_t Second() const { return static_cast<int64_t>(std::min(seconds, 1e15)); }
};

/// Keeps as many as memory allows.
class Extents {
 public:
  static constexpr size_t kLimit = size_t{1} << 21;

  void Add(const Extent& extent) {
    if (extent.begin == extent.end) return;
    if (extents_.size() == kLimit) {
      isComplete_ = false;
      return;
    }
    extents_.push_back(extent);
  }
  std::vector<Extent>& All() { return extents_; }
  bool IsComplete() const { return isComplete_; }

 private:
  std::vector<Extent> extents_;
  bool isComplete_ = true;
};

}  // namespace qiro::k7m::tool
