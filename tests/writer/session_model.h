/// @file session_model.h
/// What a file must hold after a writing session, worked out from what was added. Shares no code
/// with the library.
#ifndef K7M_TESTS_WRITER_SESSION_MODEL_H
#define K7M_TESTS_WRITER_SESSION_MODEL_H

#include <optional>
#include <vector>

#include "support/box_records.h"
#include "support/opened_reader.h"
#include "support/opened_writer.h"

namespace k7mtest {

struct ModelSample {
  uint64_t presented = 0;  // Track scale, gaps included.
  uint64_t stored = 0;     // Track scale, gaps removed.
  uint32_t compositionOffset = 0;
  uint32_t flags = 0;
  uint32_t description = 1;
  Bytes data;
};

/// A sample description as the reader shows it.
struct ModelDescription {
  uint32_t type = 0;
  Bytes codecHeader;
};

/// A track as a list of stretches of media with gaps between them.
class ModelTrack {
 public:
  ModelTrack(NewTrack track, uint32_t movieScale)
      : track_(std::move(track)), movieScale_(movieScale) {}

  const NewTrack& Setup() const { return track_; }
  void AddDescription(ModelDescription description) {
    descriptions_.push_back(std::move(description));
  }
  const std::vector<ModelDescription>& Descriptions() const { return descriptions_; }
  void AddSample(ModelSample sample);
  void AddGap(uint64_t time);

  /// The time that the next sample or gap must not be before.
  uint64_t Earliest() const { return last_.value_or(0); }
  /// Whether the last sample is the first one of its stretch.
  bool HasJustBegun() const {
    return !samples_.empty() && samples_.back().presented == stretches_.back().begin;
  }
  bool InGap() const { return gapStart_.has_value(); }
  bool HasStarted() const { return last_.has_value(); }
  size_t GapCount() const { return gapCount_; }
  size_t SampleCount() const { return samples_.size(); }
  const std::vector<ModelSample>& Samples() const { return samples_; }

  /// One movie tick, at least one of the track's.
  uint64_t DefaultDuration() const;
  /// The edit list at a flush.
  std::vector<Elst::Entry> Edits() const;
  /// What the reader delivers with edits: samples and gaps, the gaps with flag 2. The reader passes
  /// over a gap without length at the begin and over samples without duration at either end of an
  /// edit.
  std::vector<ModelSample> Presented() const;
  /// Whether Presented() is right: every time is a whole number in movie scale, or there is no gap;
  /// the edit list holds its times, and a query reaches them; and no gap comes late and before any
  /// sample, where the edit in front of it shows media from behind it.
  bool IsExact() const;

 private:
  struct Stretch {
    uint64_t begin = 0;
    uint64_t mediaBegin = 0;
    std::optional<uint64_t> end = {};
  };

  uint64_t ToMovie(uint64_t time) const;
  /// Whether a sample of this stretch has no duration and stands at one of its ends.
  bool IsPassedOver(size_t sample, const Stretch& stretch) const;

  NewTrack track_;
  uint32_t movieScale_;
  std::vector<ModelDescription> descriptions_;
  std::vector<ModelSample> samples_;
  std::vector<Stretch> stretches_ = {{}};
  std::optional<uint64_t> last_;
  std::optional<uint64_t> gapStart_;
  bool hasLateFirstGap_ = false;
  uint64_t removed_ = 0;
  size_t gapCount_ = 0;
};

/// Compares what the reader delivers with the edit lists with the model, where the times are exact.
void ExpectPresented(const OpenedReader& reader, QiroK7MTrack* track, const ModelTrack& model);

/// Opens the file and compares every track with its model.
void ExpectFileHolds(const Bytes& file, const std::vector<ModelTrack>& tracks);

}  // namespace k7mtest

#endif
