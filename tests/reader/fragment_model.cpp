#include "fragment_model.h"

#include <algorithm>
#include <memory>

#include "k7m/k7m.h"
#include "support/fragment_builder.h"

namespace k7mtest {

namespace {

/// A field of a 'tfhd', or what the movie box says instead.
uint32_t Given(bool isPresent, uint32_t value, uint32_t otherwise) {
  return isPresent && value != 0xFFFFFFFF ? value : otherwise;
}

}  // namespace

// What is in the fragments
// ---------------------------------------------------------------------------------------

FragmentModel::FragmentModel(const ModelMovie& movie, const ModelFragments& fragments,
                             uint32_t readFlags)
    : movie_(movie),
      fragments_(fragments),
      readFlags_(readFlags),
      tracks_(movie.tracks.size()),
      parsedCount_(fragments.parsedCount) {
  Expand();
}

void FragmentModel::Expand() {
  for (size_t m = 0; m < fragments_.moofs.size(); ++m) {
    uint64_t dataEnd = 0;
    for (size_t t = 0; t < fragments_.moofs[m].trafs.size(); ++t) {
      ExpandTraf(fragments_.moofs[m], m, t, dataEnd);
    }
  }
}

uint64_t FragmentModel::BaseOf(const ModelMoof& moof, size_t trafIndex, uint64_t dataEnd) const {
  const ModelTraf& traf = moof.trafs[trafIndex];
  if ((traf.flags & kTfhdBase) != 0) return traf.fields.baseDataOffset;
  if ((readFlags_ & kQiroK7MReadBaseDataOffsets) == 0) return 0;
  if ((traf.flags & kTfhdBaseIsMoof) != 0 || trafIndex == 0) return moof.offset;
  return dataEnd;
}

void FragmentModel::ExpandTraf(const ModelMoof& moof, size_t moofIndex, size_t trafIndex,
                               uint64_t& dataEnd) {
  const ModelTraf& traf = moof.trafs[trafIndex];
  const Trex& trex = fragments_.defaults[traf.track];
  Expanded& track = tracks_[traf.track];
  const auto given = [&](uint32_t flag, uint32_t value, uint32_t otherwise) {
    return Given((traf.flags & flag) != 0, value, otherwise);
  };
  const uint32_t description = given(kTfhdDescription, traf.fields.description, trex.description);
  const uint32_t duration = given(kTfhdDuration, traf.fields.duration, trex.duration);
  const uint32_t size = given(kTfhdSize, traf.fields.size, trex.size);
  const uint32_t flags = given(kTfhdSampleFlags, traf.fields.sampleFlags, trex.sampleFlags);

  const bool followsStandard = (readFlags_ & kQiroK7MReadBaseDataOffsets) != 0;
  const uint64_t base = BaseOf(moof, trafIndex, dataEnd);
  uint64_t time = track.spans.empty() ? 0 : track.spans.back().end;
  if ((readFlags_ & kQiroK7MReadStartTimes) != 0 && traf.startTime) time = *traf.startTime;
  Span span{.start = time, .moof = moofIndex, .firstSample = track.samples.size()};
  dataEnd = base;
  for (const ModelRun& run : traf.runs) {
    uint64_t offset = followsStandard ? dataEnd : base;
    if ((run.flags & kTrunOffset) != 0) {
      offset = base + static_cast<uint64_t>(int64_t{run.fields.dataOffset});
    }
    for (size_t i = 0; i < run.fields.samples.size(); ++i) {
      const Trun::Sample& record = run.fields.samples[i];
      Placed placed;
      placed.duration = (run.flags & kTrunDuration) != 0 ? record.duration : duration;
      placed.moof = moofIndex;
      uint32_t sampleFlags = flags;
      if (i == 0 && (run.flags & kTrunFirstFlags) != 0) sampleFlags = run.fields.firstSampleFlags;
      if ((run.flags & kTrunFlags) != 0) sampleFlags = record.flags;
      placed.sample = {
          .track = traf.track,
          .timeStamp = time,
          .size = (run.flags & kTrunSize) != 0 ? record.size : size,
          .compositionOffset = (run.flags & kTrunComposition) != 0 ? record.compositionOffset : 0,
          .flags = (sampleFlags & 0x01010000) == 0 ? 1u : 0u,
          .description = description,
          .offset = offset};
      time += placed.duration;
      offset += placed.sample.size;
      track.samples.push_back(placed);
    }
    dataEnd = offset;
  }
  span.end = time;
  if (track.samples.size() > span.firstSample) track.spans.push_back(span);
}

bool FragmentModel::HasDescription(const ModelSample& sample) const {
  return sample.description >= 1 &&
         sample.description <= movie_.tracks[sample.track].descriptionCount;
}

// Finding
// ----------------------------------------------------------------------------------------

void FragmentModel::ParseTo(size_t track, size_t sample) {
  const std::vector<Placed>& samples = tracks_[track].samples;
  parsedCount_ = std::max(
      parsedCount_, sample < samples.size() ? samples[sample].moof + 1 : fragments_.moofs.size());
}

size_t FragmentModel::FirstCandidate(size_t track, uint64_t time) {
  const Expanded& expanded = tracks_[track];
  if ((readFlags_ & kQiroK7MReadStartTimes) != 0) {
    for (const Span& span : expanded.spans) {
      if (span.end > time) return span.firstSample;
    }
    return expanded.samples.size();
  }
  for (;; ++parsedCount_) {
    const Span* found = nullptr;
    for (const Span& span : expanded.spans) {
      if (span.moof < parsedCount_ && span.start <= time && time <= span.end) found = &span;
    }
    if (found != nullptr) {
      size_t sample = found->firstSample;
      while (sample > 0 && expanded.samples[sample - 1].moof == found->moof) --sample;
      return sample;
    }
    if (parsedCount_ >= fragments_.moofs.size()) return expanded.samples.size();
  }
}

size_t FragmentModel::Position(size_t track, uint64_t time) {
  const std::vector<Placed>& samples = tracks_[track].samples;
  size_t sample = FirstCandidate(track, time);
  while (sample < samples.size() && samples[sample].sample.timeStamp < time) ++sample;
  ParseTo(track, sample);
  return sample;
}

// Walking
// ----------------------------------------------------------------------------------------

/// The samples of a track that its edits show.
class FragmentModel::Walk {
 public:
  Walk(FragmentModel& model, size_t track, ModelTime start, ModelTime end)
      : model_(model), track_(track), definition_(model.movie_.tracks[track]) {
    const uint32_t movieScale = model.movie_.timeScale;
    rangeStart_ = ConvertTime(start.value, start.scale, movieScale);
    rangeEnd_ = ConvertTime(end.value, end.scale, movieScale);
    edits_ = {{.segmentDuration = definition_.headerDuration}};
    if (definition_.edits) edits_ = *definition_.edits;
    uint64_t sum = 0;
    for (const Elst::Entry& edit : edits_) {
      starts_.push_back(sum);
      sum += edit.segmentDuration;
    }
    first_ = definition_.edits ? LastAtOrBefore(rangeStart_) : 0;
    last_ = definition_.edits ? LastAtOrBefore(rangeEnd_) : 0;
    hasEnded_ = edits_.empty();
    edit_ = first_;
    if (!hasEnded_) Enter();
  }

  std::optional<ModelSample> Fetch() {
    if (wasHandedOut_ && !hasEnded_) Move();
    if (hasEnded_) return std::nullopt;
    wasHandedOut_ = true;
    const uint64_t base = ToTrack(starts_[edit_]);
    if (IsGap()) return ModelSample{.track = track_, .timeStamp = base, .flags = 2};
    ModelSample sample = Current();
    sample.timeStamp = base + (sample.timeStamp - static_cast<uint64_t>(edits_[edit_].mediaTime));
    if (!model_.HasDescription(sample)) {
      ++model_.missingDescriptions_;
      sample.description = 0;
      hasEnded_ = true;
    }
    return sample;
  }

 private:
  size_t LastAtOrBefore(uint64_t time) const {
    size_t found = 0;
    for (size_t i = 0; i < starts_.size(); ++i) {
      if (starts_[i] <= time) found = i;
    }
    return found;
  }
  uint64_t ToTrack(uint64_t movieTime) const {
    return ConvertTime(movieTime, model_.movie_.timeScale, definition_.timeScale);
  }
  bool IsGap() const { return edits_[edit_].mediaTime == -1; }
  const ModelSample& Current() const { return model_.tracks_[track_].samples[sample_].sample; }
  bool IsInside() const {
    return sample_ < model_.tracks_[track_].samples.size() && Current().timeStamp < mediaEnd_;
  }

  void Move() {
    if (!IsGap()) {
      model_.ParseTo(track_, ++sample_);
      if (IsInside()) return;
    }
    ++edit_;
    Enter();
  }

  /// Goes on to the first edit from this one on that shows something.
  void Enter() {
    for (; edit_ <= last_; ++edit_) {
      if (IsGap() || Show()) return;
    }
    hasEnded_ = true;
  }

  bool Show() {
    const auto mediaTime = static_cast<uint64_t>(edits_[edit_].mediaTime);
    const uint64_t segmentStart = starts_[edit_];
    const uint64_t inMovie = ConvertTime(mediaTime, definition_.timeScale, model_.movie_.timeScale);
    const bool isFirst = edit_ == first_;
    const uint64_t begin = isFirst ? rangeStart_ - segmentStart + inMovie : inMovie;
    const uint64_t rangeEnd = isFirst ? rangeEnd_ : rangeEnd_ - segmentStart + inMovie;
    mediaEnd_ = ToTrack(std::min(rangeEnd, inMovie + edits_[edit_].segmentDuration));
    const uint64_t from = std::max(ToTrack(begin), mediaTime);
    if (from >= mediaEnd_) return false;
    sample_ = model_.Position(track_, from);
    return IsInside();
  }

  FragmentModel& model_;
  size_t track_;
  const ModelTrack& definition_;
  std::vector<Elst::Entry> edits_;
  std::vector<uint64_t> starts_;
  uint64_t rangeStart_ = 0;
  uint64_t rangeEnd_ = 0;
  uint64_t mediaEnd_ = 0;
  size_t first_ = 0;
  size_t last_ = 0;
  size_t edit_ = 0;
  size_t sample_ = 0;
  bool hasEnded_ = false;
  bool wasHandedOut_ = false;
};

/// The samples of a track as they lie in the file.
class FragmentModel::MediaWalk {
 public:
  MediaWalk(FragmentModel& model, size_t track)
      : model_(model), track_(track), inMovieBox_(ExpectMediaSamples(model.movie_, {track})) {}

  std::optional<ModelSample> Fetch() {
    if (next_ < inMovieBox_.size()) return inMovieBox_[next_++];
    if (hasEnded_) return std::nullopt;
    const size_t index = next_++ - inMovieBox_.size();
    model_.ParseTo(track_, index);
    if (index >= model_.tracks_[track_].samples.size()) return std::nullopt;
    ModelSample sample = model_.tracks_[track_].samples[index].sample;
    if (!model_.HasDescription(sample)) {
      ++model_.missingDescriptions_;
      sample.description = 0;
      hasEnded_ = true;
    }
    return sample;
  }

 private:
  FragmentModel& model_;
  size_t track_;
  std::vector<ModelSample> inMovieBox_;
  size_t next_ = 0;
  bool hasEnded_ = false;
};

std::vector<ModelSample> FragmentModel::Merge(const std::vector<size_t>& tracks,
                                              const std::function<Fetch(size_t)>& fetchOf) {
  struct Pending {
    Fetch fetch;
    std::optional<ModelSample> sample;
  };
  std::vector<Pending> all;
  for (const size_t track : InDeliveryOrder(movie_, tracks)) {
    Fetch fetch = fetchOf(track);
    auto sample = fetch();
    all.push_back({std::move(fetch), std::move(sample)});
  }
  std::vector<ModelSample> merged;
  for (;;) {
    Pending* chosen = nullptr;
    for (Pending& pending : all) {
      if (!pending.sample) continue;
      if (chosen == nullptr ||
          pending.sample->timeStamp * movie_.tracks[chosen->sample->track].timeScale <
              chosen->sample->timeStamp * movie_.tracks[pending.sample->track].timeScale) {
        chosen = &pending;
      }
    }
    if (chosen == nullptr) return merged;
    merged.push_back(*chosen->sample);
    chosen->sample = chosen->fetch();
  }
}

std::vector<ModelSample> FragmentModel::Samples(ModelTime start, ModelTime end,
                                                const std::vector<size_t>& tracks) {
  return Merge(tracks, [&](size_t track) -> Fetch {
    return [walk = std::make_shared<Walk>(*this, track, start, end)] { return walk->Fetch(); };
  });
}

std::vector<ModelSample> FragmentModel::MediaSamples(const std::vector<size_t>& tracks) {
  return Merge(tracks, [&](size_t track) -> Fetch {
    return [walk = std::make_shared<MediaWalk>(*this, track)] { return walk->Fetch(); };
  });
}

uint32_t FragmentModel::SampleCount(size_t track) {
  parsedCount_ = fragments_.moofs.size();
  const Stsz& sizes = movie_.tracks[track].sizes;
  const size_t inTable = sizes.count.value_or(static_cast<uint32_t>(sizes.sizes.size()));
  return static_cast<uint32_t>(inTable + tracks_[track].samples.size());
}

}  // namespace k7mtest
