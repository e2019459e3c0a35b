/// @file fragment_model.h
/// What the sample queries must deliver of a fragmented document, worked out the slow way: every
/// run is expanded to one record a sample, every fragment is looked at for every question. Shares
/// no code with the library.
#ifndef K7M_TESTS_READER_FRAGMENT_MODEL_H
#define K7M_TESTS_READER_FRAGMENT_MODEL_H

#include <functional>
#include <optional>
#include <vector>

#include "sample_model.h"

namespace k7mtest {

struct ModelRun {
  uint32_t flags = 0;
  Trun fields = {};
};

struct ModelTraf {
  size_t track = 0;
  uint32_t flags = 0;
  Tfhd fields = {};
  std::optional<uint64_t> startTime = {};  // 'tfdt'
  std::vector<ModelRun> runs = {};
};

struct ModelMoof {
  std::vector<ModelTraf> trafs = {};
  uint64_t offset = 0;  // In the file.
};

struct ModelFragments {
  std::vector<Trex> defaults = {};  // By track.
  std::vector<ModelMoof> moofs = {};
  size_t parsedCount = 0;  // That many are parsed when the file is opened.
};

/// Answers questions as one reader does, one after the other: which fragments are parsed already
/// can matter to the next answer.
class FragmentModel {
 public:
  /// `readFlags` is a sum of QiroK7MReadFlags.
  FragmentModel(const ModelMovie& movie, const ModelFragments& fragments, uint32_t readFlags);

  std::vector<ModelSample> Samples(ModelTime start, ModelTime end,
                                   const std::vector<size_t>& tracks);
  std::vector<ModelSample> MediaSamples(const std::vector<size_t>& tracks);
  uint32_t SampleCount(size_t track);
  /// How many samples without a description were made so far, delivered or not.
  uint32_t MissingDescriptions() const { return missingDescriptions_; }

 private:
  struct Placed {
    ModelSample sample;  // On the media timeline.
    uint32_t duration = 0;
    size_t moof = 0;
  };
  /// The time that a track fragment with samples covers.
  struct Span {
    uint64_t start = 0;
    uint64_t end = 0;
    size_t moof = 0;
    size_t firstSample = 0;
  };
  struct Expanded {
    std::vector<Placed> samples;
    std::vector<Span> spans;
  };
  /// Gives the next sample of a track; none at its end.
  using Fetch = std::function<std::optional<ModelSample>()>;
  class Walk;
  class MediaWalk;

  void Expand();
  void ExpandTraf(const ModelMoof& moof, size_t moofIndex, size_t trafIndex, uint64_t& dataEnd);
  uint64_t BaseOf(const ModelMoof& moof, size_t trafIndex, uint64_t dataEnd) const;
  bool HasDescription(const ModelSample& sample) const;
  std::vector<ModelSample> Merge(const std::vector<size_t>& tracks,
                                 const std::function<Fetch(size_t)>& fetchOf);
  /// The first sample of a track from `time` on; the count of samples when there is none.
  size_t Position(size_t track, uint64_t time);
  size_t FirstCandidate(size_t track, uint64_t time);
  /// Parses as far as a sample of the track; all when it has no such.
  void ParseTo(size_t track, size_t sample);

  const ModelMovie& movie_;
  const ModelFragments& fragments_;
  uint32_t readFlags_;
  std::vector<Expanded> tracks_;
  size_t parsedCount_;
  uint32_t missingDescriptions_ = 0;
};

}  // namespace k7mtest

#endif
