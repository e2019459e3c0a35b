#pragma once

#include <memory>
#include <optional>
#include <span>

#include "base/allocation.h"
#include "boxes/box_header.h"
#include "boxes/tfhd_box.h"
#include "boxes/track_fragments.h"

namespace qiro::k7m::impl {

class MvexBox;
class RootBox;

/// A block for a fragment in the client's memory.
struct FragmentMemoryRelease {
  const QiroK7MAllocatorCallBacks* callBacks;
  void operator()(uint8_t* block) const { ReleaseThrough(callBacks, block); }
};
using FragmentMemory = std::unique_ptr<uint8_t, FragmentMemoryRelease>;

/// Takes the samples of a movie fragment straight from the bytes of its 'moof', read at once, and
/// makes no boxes. That is for fragments of the ordinary form, in which nothing is missing, wrong
/// or unusual: what every other means is said by the boxes alone.
class FragmentLoader {
 public:
  /// Not owned. The callbacks outlive the object.
  FragmentLoader(RootBox* root, QiroK7MStream* stream, const QiroK7MAllocatorCallBacks* allocator);

  /// False when the fragment is not of the ordinary form: then it is still to be parsed.
  bool Load(const BoxHeader& moof);

 private:
  using Bytes = std::span<const uint8_t>;
  /// A 'trun' whose records are all in its box.
  struct Run {
    RunHeader header;
    Bytes records;
  };
  /// A 'traf': its runs are the next `runCount` of `runs_`.
  struct Traf {
    TrackFragmentHeader header;
    std::optional<uint64_t> startTime;
    size_t runCount = 0;
    TrackFragment fragment;
  };
  /// The runs of all tracks, then their places, then their records, in one block.
  struct Memory {
    TrackRun* runs;
    TrackRun::Place* places;
    uint32_t* records;
  };

  /// Each is false for what is not of the ordinary form.
  bool ReadPayload(const BoxHeader& moof);
  bool List(Bytes moof);
  bool ListTraf(Bytes payload);
  bool TakeHeader(Bytes payload, Traf& traf);
  bool TakeStartTime(Bytes payload, Traf& traf);
  bool TakeRun(Bytes payload);
  bool ResolveDefaults();

  void ResolveAll();
  void Resolve(Traf& traf, const Run* runs, Memory& memory);

  RootBox* root_;
  QiroK7MStream* stream_;
  FragmentMemory payload_;
  size_t payloadCapacity_ = 0;
  size_t payloadSize_ = 0;
  /// Of the fragment that is being loaded.
  K7MVector<Traf> trafs_;
  K7MVector<Run> runs_;
};

}  // namespace qiro::k7m::impl
