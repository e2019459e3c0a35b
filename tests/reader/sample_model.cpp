#include "sample_model.h"

#include <algorithm>
#include <functional>

namespace k7mtest {

uint64_t ConvertTime(uint64_t value, uint32_t from, uint32_t to) {
  if (from == to) return value;
  if (from == 0) return 0;
  return (value * to + (from - 1) / 2) / from;
}

std::vector<size_t> InDeliveryOrder(const ModelMovie& movie, const std::vector<size_t>& tracks) {
  std::vector<size_t> ordered;
  const auto take = [&](auto isWanted) {
    for (const size_t t : tracks) {
      if (isWanted(movie.tracks[t].handler)) ordered.push_back(t);
    }
  };
  take([](const std::string& handler) { return handler == "vide"; });
  take([](const std::string& handler) { return handler == "soun"; });
  take([](const std::string& handler) { return handler != "vide" && handler != "soun"; });
  return ordered;
}

namespace {

struct PerSample {
  uint64_t time = 0;
  size_t run = 0;  // Of the time table, runs without samples left out.
  bool isInChunk = false;
  uint32_t chunk = 0;
  uint32_t firstInChunk = 0;
  uint32_t description = 0;
  uint32_t compositionOffset = 0;
};

/// All tables of a track by sample; sample number n stands at [n - 1].
class Expanded {
 public:
  explicit Expanded(const ModelTrack& track) : track_(track) {
    ExpandTimes();
    ExpandChunks();
    ExpandCompositionOffsets();
  }

  const PerSample& At(uint32_t number) const { return samples_[number - 1]; }
  uint32_t Count() const { return static_cast<uint32_t>(samples_.size()); }

  std::optional<uint64_t> ChunkOffset(uint32_t chunk) const {
    if (chunk < 1 || chunk > track_.chunkOffsets.size()) return std::nullopt;
    return track_.chunkOffsets[chunk - 1];
  }
  /// The size of a sample in a walk that was positioned at the chunk starting with `walkStart`. A
  /// constant size is given out as often as there are samples, wherever the walk starts.
  std::optional<uint32_t> Size(uint32_t number, uint32_t walkStart) const {
    if (track_.sizes.constantSize != 0) {
      if (number - walkStart >= *track_.sizes.count) return std::nullopt;
      return track_.sizes.constantSize;
    }
    if (number > track_.sizes.sizes.size()) return std::nullopt;
    return track_.sizes.sizes[number - 1];
  }
  uint8_t Dependency(uint32_t number) const {
    if (!track_.dependencies || number > track_.dependencies->size()) return 0;
    return (*track_.dependencies)[number - 1];
  }

  /// The numbers of the first and last sample between two decode times, both included.
  std::optional<std::pair<uint32_t, uint32_t>> Search(uint64_t begin, uint64_t end) const {
    if (samples_.empty() || end < begin || begin > samples_.back().time) return std::nullopt;
    const auto [beginFirst, beginLast] = RunAt(begin);
    uint32_t first = beginFirst;
    while (first < beginLast && At(first).time < begin && !IsFlat(beginFirst)) ++first;
    const auto [endFirst, endLast] = RunAt(end);
    uint32_t last = endLast;
    while (last > endFirst && At(last).time > end) --last;
    if (first > last) return std::nullopt;
    return std::pair(first, last);
  }

 private:
  void ExpandTimes() {
    uint64_t time = 0;
    size_t run = 0;
    for (const Stts::Run& entry : track_.times) {
      if (entry.count == 0) continue;
      for (uint32_t i = 0; i < entry.count; ++i) {
        samples_.push_back({.time = time, .run = run});
        time += entry.delta;
      }
      isFlat_.push_back(entry.delta == 0);
      ++run;
    }
  }

  void ExpandChunks() {
    uint32_t number = 1;
    for (size_t r = 0; r < track_.chunkMap.size(); ++r) {
      const Stsc::Run& run = track_.chunkMap[r];
      const bool isLast = r + 1 == track_.chunkMap.size();
      if (run.samplesPerChunk == 0) continue;
      const uint32_t end = isLast ? 0xFFFFFFFF : track_.chunkMap[r + 1].firstChunk;
      for (uint32_t chunk = run.firstChunk; chunk < end && number <= Count(); ++chunk) {
        const uint32_t firstInChunk = number;
        for (uint32_t i = 0; i < run.samplesPerChunk && number <= Count(); ++i, ++number) {
          PerSample& sample = samples_[number - 1];
          sample.isInChunk = true;
          sample.chunk = chunk;
          sample.firstInChunk = firstInChunk;
          sample.description = run.description;
        }
      }
    }
  }

  void ExpandCompositionOffsets() {
    if (!track_.compositionOffsets) return;
    uint32_t number = 1;
    for (const Ctts::Run& run : *track_.compositionOffsets) {
      for (uint32_t i = 0; i < run.count && number <= Count(); ++i, ++number) {
        samples_[number - 1].compositionOffset = run.offset;
      }
    }
  }

  bool IsFlat(uint32_t number) const { return isFlat_[At(number).run]; }

  /// First and last sample of the last run that starts at or before a time.
  std::pair<uint32_t, uint32_t> RunAt(uint64_t time) const {
    uint32_t first = 1;
    for (uint32_t n = 2; n <= Count(); ++n) {
      if (At(n).run != At(n - 1).run && At(n).time <= time) first = n;
    }
    uint32_t last = first;
    while (last < Count() && At(last + 1).run == At(first).run) ++last;
    return {first, last};
  }

  const ModelTrack& track_;
  std::vector<PerSample> samples_;
  std::vector<bool> isFlat_;
};

/// Walks one track; what it delivers is collected.
class TrackWalk {
 public:
  TrackWalk(const ModelMovie& movie, size_t index)
      : movie_(movie), track_(movie.tracks[index]), tables_(track_), index_(index) {}

  std::vector<ModelSample> Between(ModelTime start, ModelTime end) {
    rangeStart_ = ConvertTime(start.value, start.scale, movie_.timeScale);
    rangeEnd_ = ConvertTime(end.value, end.scale, movie_.timeScale);
    std::vector<Elst::Entry> edits = {{.segmentDuration = track_.headerDuration}};
    if (track_.edits) edits = *track_.edits;
    std::vector<uint64_t> starts;
    uint64_t sum = 0;
    for (const Elst::Entry& edit : edits) {
      starts.push_back(sum);
      sum += edit.segmentDuration;
    }
    if (edits.empty()) return {};
    const size_t first = track_.edits ? LastAtOrBefore(starts, rangeStart_) : 0;
    const size_t last = track_.edits ? LastAtOrBefore(starts, rangeEnd_) : 0;
    for (size_t i = first; i <= last && !hasEnded_; ++i) {
      ShowEdit(edits[i], starts[i], i == first);
    }
    return std::move(delivered_);
  }

  std::vector<ModelSample> Media() {
    if (tables_.Count() > 0) Deliver(1, tables_.Count(), [&](uint64_t time) { return time; });
    return std::move(delivered_);
  }

 private:
  static size_t LastAtOrBefore(const std::vector<uint64_t>& starts, uint64_t time) {
    size_t found = 0;
    for (size_t i = 0; i < starts.size(); ++i) {
      if (starts[i] <= time) found = i;
    }
    return found;
  }

  uint64_t ToTrack(uint64_t movieTime) const {
    return ConvertTime(movieTime, movie_.timeScale, track_.timeScale);
  }

  void ShowEdit(const Elst::Entry& edit, uint64_t segmentStart, bool isFirst) {
    const uint64_t base = ToTrack(segmentStart);
    if (edit.mediaTime == -1) {
      delivered_.push_back({.track = index_, .timeStamp = base, .flags = 2});
      return;
    }
    const auto mediaTime = static_cast<uint64_t>(edit.mediaTime);
    const uint64_t mediaInMovie = ConvertTime(mediaTime, track_.timeScale, movie_.timeScale);
    const uint64_t editEnd = mediaInMovie + edit.segmentDuration;
    const uint64_t begin = isFirst ? rangeStart_ - segmentStart + mediaInMovie : mediaInMovie;
    const uint64_t rangeEnd = isFirst ? rangeEnd_ : rangeEnd_ - segmentStart + mediaInMovie;
    const bool isEndExcluded = editEnd <= rangeEnd;
    const uint64_t from = ToTrack(begin);
    const uint64_t to = ToTrack(std::min(editEnd, rangeEnd));
    if (isEndExcluded && to <= from) return;
    const auto found = tables_.Search(from, to);
    if (!found) return;
    auto [first, last] = *found;
    while (first <= last && tables_.At(first).time < mediaTime) ++first;
    while (last >= first && isEndExcluded && tables_.At(last).time >= to) --last;
    if (first > last) return;
    Deliver(first, last, [&](uint64_t time) { return base + (time - mediaTime); });
  }

  void Deliver(uint32_t first, uint32_t last, const std::function<uint64_t(uint64_t)>& timeStamp) {
    const PerSample& start = tables_.At(first);
    const auto chunkOffset =
        start.isInChunk ? tables_.ChunkOffset(start.chunk) : std::optional<uint64_t>();
    if (!chunkOffset || !tables_.Size(first, start.firstInChunk)) {
      hasEnded_ = true;
      return;
    }
    uint64_t offset = *chunkOffset;
    for (uint32_t n = start.firstInChunk; n < first; ++n) {
      offset += *tables_.Size(n, start.firstInChunk);
    }
    StartSyncSamples(first);
    for (uint32_t n = first; n <= last; ++n) {
      const PerSample& sample = tables_.At(n);
      const auto size = tables_.Size(n, start.firstInChunk);
      if (!size || !sample.isInChunk) {
        hasEnded_ = true;
        return;
      }
      if (n != first && sample.chunk != tables_.At(n - 1).chunk) {
        const auto next = tables_.ChunkOffset(sample.chunk);
        if (!next) return;
        offset = *next;
      }
      Hand(n, *size, offset, timeStamp(sample.time));
      if (hasEnded_) return;
      offset += *size;
    }
  }

  void Hand(uint32_t number, uint32_t size, uint64_t offset, uint64_t timeStamp) {
    const PerSample& sample = tables_.At(number);
    const bool hasDescription =
        sample.description >= 1 && sample.description <= track_.descriptionCount;
    const uint32_t flags = uint32_t{tables_.Dependency(number)} << 8 | (TakeKey(number) ? 1u : 0u);
    delivered_.push_back({.track = index_,
                          .timeStamp = timeStamp,
                          .size = size,
                          .compositionOffset = sample.compositionOffset,
                          .flags = flags,
                          .description = hasDescription ? sample.description : 0,
                          .offset = offset});
    hasEnded_ = !hasDescription;
  }

  void StartSyncSamples(uint32_t number) {
    nextSync_ = 0;
    while (track_.syncSamples && nextSync_ < track_.syncSamples->size() &&
           (*track_.syncSamples)[nextSync_] < number) {
      ++nextSync_;
    }
  }
  bool TakeKey(uint32_t number) {
    if (!track_.syncSamples || nextSync_ >= track_.syncSamples->size()) return false;
    if ((*track_.syncSamples)[nextSync_] != number) return false;
    ++nextSync_;
    return true;
  }

  const ModelMovie& movie_;
  const ModelTrack& track_;
  Expanded tables_;
  size_t index_;
  uint64_t rangeStart_ = 0;
  uint64_t rangeEnd_ = 0;
  size_t nextSync_ = 0;
  bool hasEnded_ = false;
  std::vector<ModelSample> delivered_;
};

std::vector<ModelSample> Merge(const ModelMovie& movie,
                               const std::vector<std::vector<ModelSample>>& lists) {
  std::vector<size_t> next(lists.size(), 0);
  std::vector<ModelSample> merged;
  for (;;) {
    const ModelSample* chosen = nullptr;
    size_t chosenList = 0;
    for (size_t i = 0; i < lists.size(); ++i) {
      if (next[i] == lists[i].size()) continue;
      const ModelSample& sample = lists[i][next[i]];
      if (chosen == nullptr || sample.timeStamp * movie.tracks[chosen->track].timeScale <
                                   chosen->timeStamp * movie.tracks[sample.track].timeScale) {
        chosen = &sample;
        chosenList = i;
      }
    }
    if (chosen == nullptr) return merged;
    merged.push_back(*chosen);
    ++next[chosenList];
  }
}

}  // namespace

std::vector<ModelSample> ExpectSamples(const ModelMovie& movie, ModelTime start, ModelTime end,
                                       const std::vector<size_t>& tracks) {
  std::vector<std::vector<ModelSample>> lists;
  for (const size_t t : InDeliveryOrder(movie, tracks)) {
    lists.push_back(TrackWalk(movie, t).Between(start, end));
  }
  return Merge(movie, lists);
}

std::vector<ModelSample> ExpectMediaSamples(const ModelMovie& movie,
                                            const std::vector<size_t>& tracks) {
  std::vector<std::vector<ModelSample>> lists;
  for (const size_t t : InDeliveryOrder(movie, tracks))
    lists.push_back(TrackWalk(movie, t).Media());
  return Merge(movie, lists);
}

}  // namespace k7mtest
