/// @file writer_script.h
/// A fixed sequence of writer calls, prepared so that running it does nothing but call the library.
#ifndef K7M_TESTS_API_WRITER_SCRIPT_H
#define K7M_TESTS_API_WRITER_SCRIPT_H

#include <memory>
#include <string>
#include <vector>

#include "support/counted_buffer.h"
#include "support/opened_writer.h"

namespace k7mtest {

enum class Do : uint8_t {
  kAddTrack,
  kDescribe,
  kSetDescription,
  kSetUlb,
  kAddFullBox,
  kSample,
  kAddGap,
  kFlush,
  kClose
};

struct ScriptStep {
  Do what;
  size_t track = 0;   // From 0; tracks are numbered in the order in which they are added.
  uint64_t time = 0;  // Of a sample or gap.
};

/// What a run did. Codes are those of the steps, in order, `created` that of the creation.
struct ScriptResult {
  QiroK7MError created = 0;
  std::vector<QiroK7MError> codes;
  std::vector<bool> hasHandles;           // Whether the step's track and descriptor exist.
  std::vector<int> releases;              // By step; -1: the step was not reached.
  std::vector<uint64_t> callsBehindStep;  // Calls of the stream so far, by step.
  std::vector<size_t> changesBehindStep;  // The same for the changes in its journal.
  uint64_t callsBehindDestroy = 0;
};

class WriterScript {
 public:
  explicit WriterScript(std::vector<ScriptStep> steps, bool isFragmented = false);

  const std::vector<ScriptStep>& Steps() const { return steps_; }
  bool EndsClosed() const { return !steps_.empty() && steps_.back().what == Do::kClose; }
  /// Makes fresh buffers and room for the results; to be called before faults are armed.
  void Prepare();
  /// Creates, does every step whatever the earlier ones answered, destroys. Takes no memory itself.
  void Run(MemoryStream& stream, const QiroK7MAllocatorCallBacks& memory);
  const ScriptResult& Result();
  /// The bytes that a step hands over.
  static Bytes DataOf(size_t step) { return Pattern(1 + step % 5, static_cast<uint32_t>(step)); }
  /// Gives the prepared buffers back, so that no memory is held between two runs.
  void Forget();

 private:
  static constexpr size_t kMaxTracks = 4;

  bool HasHandles(const ScriptStep& step) const;
  QiroK7MError DoStep(size_t index, QiroK7MWriter* writer);

  std::vector<ScriptStep> steps_;
  bool isFragmented_;
  std::vector<std::unique_ptr<CountedBuffer>> buffers_;
  ScriptResult result_;
  std::string handlerName_ = "name";
  QiroK7MTrack* tracks_[kMaxTracks] = {};
  QiroK7MSampleDescriptor* descriptors_[kMaxTracks] = {};
  size_t trackCount_ = 0;
};

/// An order of calls that the state machine allows, from a seed: tracks with their descriptions,
/// metadata and extra boxes, then samples, gaps, flushes and further descriptions; closed or not.
std::vector<ScriptStep> RandomScript(uint32_t seed);

}  // namespace k7mtest

#endif
