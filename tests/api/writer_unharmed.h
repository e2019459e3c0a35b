/// @file writer_unharmed.h
/// A run of writer calls without a fault, and what a run with one must not have lost of it.
#ifndef K7M_TESTS_API_WRITER_UNHARMED_H
#define K7M_TESTS_API_WRITER_UNHARMED_H

#include <memory>

#include "support/complete_part.h"
#include "writer_script.h"

namespace k7mtest {

class UnharmedRun {
 public:
  explicit UnharmedRun(std::vector<ScriptStep> steps, bool isFragmented = false);

  /// All that had been written behind the movie box when the first failure came is on the stream as
  /// it was, and every sample of the last flush is read.
  void ExpectKept(const ScriptResult& result, const MemoryStream& stream) const;

 private:
  /// Behind a step.
  struct State {
    Bytes file;
    std::shared_ptr<const CompletePart> flushed;  // What the last flush made complete; may be null.
  };
  bool MayChange(size_t offset, const Bytes& before) const;

  bool isFragmented_;
  std::vector<State> states_;
  Bytes last_;                        // What a close behind all steps leaves.
  std::vector<size_t> mediaHeaders_;  // Where they begin in that.
};

}  // namespace k7mtest

#endif
