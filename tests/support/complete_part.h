/// @file complete_part.h
/// What is complete in a file that is being written, and whether it is still there later.
#ifndef K7M_TESTS_SUPPORT_COMPLETE_PART_H
#define K7M_TESTS_SUPPORT_COMPLETE_PART_H

#include <vector>

#include "opened_reader.h"

namespace k7mtest {

/// Where the last complete top-level box ends. One without a type, as that of media which is still
/// being written, is none.
size_t EndOfBoxes(const Bytes& file);

/// The samples that a file holds, as they lie in it.
class CompletePart {
 public:
  explicit CompletePart(const Bytes& file);

  /// Each track begins with them; behind them there may be more, or an unfinished box. Without any
  /// nothing is expected: a fragmented document may be unreadable until its first fragment is
  /// complete.
  void ExpectReadFrom(const Bytes& file) const;

 private:
  std::vector<std::vector<ReadSample>> tracks_;
};

}  // namespace k7mtest

#endif
