#include "remux_copy.h"

#include <algorithm>
#include <deque>
#include <optional>

#include "media_types.h"
#include "messages.h"

namespace qiro::k7m::tool {
namespace {

class SampleCopy {
 public:
  SampleCopy(const Document& document, const std::vector<TrackPlan>& plans,
             Interleaving interleaving, MovieWriter* writer)
      : document_(document),
        plans_(plans),
        interleaving_(interleaving),
        writer_(writer),
        progress_(Total(plans), Unit::kBytes) {
    for (size_t i = 0; i < plans.size(); ++i) {
      sources_.emplace_back(document, *plans[i].track, plans[i].layout);
      order_.push_back(i);
    }
    std::stable_sort(order_.begin(), order_.end(), [&plans](size_t a, size_t b) {
      return RankOf(plans[a].track->info.mediaType) < RankOf(plans[b].track->info.mediaType);
    });
  }

  void CopyUntil(const std::optional<MediaTime>& limit) {
    for (;;) {
      const size_t* track = EarliestTrack();
      if (track == nullptr || !IsBefore(*track, limit)) return;
      CopyRun(*track, limit);
    }
  }

 private:
  static uint64_t Total(const std::vector<TrackPlan>& plans) {
    uint64_t total = 0;
    for (const TrackPlan& plan : plans) total += plan.byteCount;
    return total;
  }

  // Null when all tracks have ended.
  const size_t* EarliestTrack() const {
    const size_t* earliest = nullptr;
    for (const size_t& track : order_) {
      if (plans_[track].sampleCount == 0 || !sources_[track].HasSample()) continue;
      if (earliest == nullptr || IsEarlier(sources_[track].Time(), sources_[*earliest].Time())) {
        earliest = &track;
      }
    }
    return earliest;
  }

  bool IsBefore(size_t track, const std::optional<MediaTime>& limit) const {
    return !limit || IsEarlier(sources_[track].Time(), *limit);
  }

  uint64_t RunLength(const QiroK7MSampleInfo& info) const {
    return interleaving_ == Interleaving::kSamples ? 0 : std::max(info.timeScale / 2, 1U);
  }

  void CopyRun(size_t track, const std::optional<MediaTime>& limit) {
    TrackSource& source = sources_[track];
    const uint64_t end = source.Info().timeStamp + RunLength(source.Info());
    do {
      CopyOne(track);
      source.Advance();
    } while (source.HasSample() && source.Info().timeStamp < end && IsBefore(track, limit));
    // Now, while the fragment of the last sample is open and can still be told how long that lasts.
    if (!source.HasSample()) EndTrack(track);
  }

  void CopyOne(size_t track) {
    const TrackSource& source = sources_[track];
    QiroK7MSampleInfo info = source.Info();
    if (IsGap(info)) {
      writer_->AddSample(track, 0, info, &bytes_);
      return;
    }
    lastTimes_[track] = info.timeStamp;
    if (info.sampleSize == 0) return;  // Told when the copy was planned.
    if (plans_[track].isAllKey) info.flags |= kQiroK7MSampleFlagKey;
    CopySample(document_, source.Sample(), info, &bytes_);
    writer_->AddSample(track, DescriptionOf(track), info, &bytes_);
    progress_.Advance(info.sampleSize);
  }

  size_t DescriptionOf(size_t track) const {
    const Track& source = *plans_[track].track;
    QiroK7MSampleDescriptor* descriptor = nullptr;
    document_.Check(QiroK7MSampleGetSampleDescriptor(sources_[track].Sample(), &descriptor));
    const auto& all = source.descriptors;
    const auto found = std::find(all.begin(), all.end(), descriptor);
    if (found != all.end()) return static_cast<size_t>(found - all.begin());
    throw FileFailure(document_.File().Path(),
                      "track " + std::to_string(source.number) + ": a sample has no description");
  }

  // The last sample's own duration is not told by anybody, but the end of the presentation is. A
  // gap that begins there and that nothing follows gives the track its length.
  void EndTrack(size_t track) {
    const TrackPlan& plan = plans_[track];
    constexpr uint64_t kLongestStep = 0xFFFFFFFF;
    const uint64_t end = plan.layout.end;
    if (end <= lastTimes_[track]) return;
    if (end - lastTimes_[track] > kLongestStep) return;
    QiroK7MSampleInfo gap{};
    gap.size = sizeof gap;
    gap.timeStamp = end;
    gap.timeScale = plan.track->info.timeScale;
    gap.mediaType = plan.track->info.mediaType;
    gap.flags = kQiroK7MSampleFlagGap;
    writer_->AddSample(track, 0, gap, &bytes_);
  }

  const Document& document_;
  const std::vector<TrackPlan>& plans_;
  Interleaving interleaving_;
  MovieWriter* writer_;
  ProgressBar progress_;
  std::deque<TrackSource> sources_;  // In the order of the plans; they do not move.
  std::vector<size_t> order_;        // In which tracks of the same time are taken.
  std::vector<uint64_t> lastTimes_ = std::vector<uint64_t>(plans_.size());
  std::vector<uint8_t> bytes_;
};

}  // namespace

void CopySamples(const Document& document, const RemuxPlan& plan, Interleaving interleaving,
                 MovieWriter* writer) {
  SampleCopy copy(document, plan.tracks, interleaving, writer);
  for (const MediaTime& cut : plan.cuts) {
    copy.CopyUntil(cut);
    writer->EndFragment();
  }
  copy.CopyUntil(std::nullopt);
}

}  // namespace qiro::k7m::tool
