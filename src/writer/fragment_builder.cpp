#include "writer/fragment_builder.h"

#include "base/gathering_stream.h"

namespace qiro::k7m::impl {
namespace {

/// Flags of a sample in a run: depends on no other, or depends on others and is no sync sample.
constexpr uint32_t kKeySampleFlags = 0x02000000;
constexpr uint32_t kOtherSampleFlags = 0x01010000;

}  // namespace

FragmentBuilder::FragmentBuilder(QiroK7MStream* stream, size_t trackCount,
                                 const QiroK7MAllocatorCallBacks* allocator)
    : stream_(stream), allocator_(allocator), tracks_(K7MAllocator<TrackState>(allocator)) {
  tracks_.reserve(trackCount);
  for (size_t track = 0; track < trackCount; ++track) {
    tracks_.emplace_back(allocator);
  }
}

void FragmentBuilder::OpenFragment(uint64_t baseDataOffset) {
  moof_ = MakeBox<MoofBox>(allocator_, stream_, fragmentNumber_ + 1);
  ++fragmentNumber_;
  baseDataOffset_ = baseDataOffset;
  for (TrackState& track : tracks_) {
    track.isInFragment = false;
    track.trunCount = 0;
    track.trunSampleCount = 0;
  }
}

void FragmentBuilder::AddSample(size_t trackIndex, const Sample& sample,
                                const uint64_t* indexTime) {
  TrackState& track = tracks_[trackIndex];
  const QiroK7MSampleInfo& info = sample.GetInfo();
  const SampleInfoTrun record{
      info.timeStamp,         0,
      info.sampleSize,        sample.IsKeySample() ? kKeySampleFlags : kOtherSampleFlags,
      info.compositionOffset, sample.GetSampleDataOffset()};
  if (!track.isInFragment) {
    PatchPendingDuration(track, info.timeStamp);
  }
  if (track.traf->AddSample(record)) {
    ++track.trunCount;
    track.trunSampleCount = 0;
  }
  track.isInFragment = true;
  track.lastTime = info.timeStamp;
  ++track.trunSampleCount;
  if (indexTime != nullptr && sample.IsKeySample()) {
    // Deliberately one more than the number of the run.
    track.entries.push_back({*indexTime, 0, static_cast<uint32_t>(trackIndex + 1),
                             track.trunCount + 1, track.trunSampleCount});
  }
}

void FragmentBuilder::PatchPendingDuration(TrackState& track, uint64_t time) {
  if (track.pendingDurationOffset != 0) {
    stream_->SeekTo(track.pendingDurationOffset);
    stream_->WriteDWORD(static_cast<uint32_t>(time - track.pendingTimestamp));
  }
}

void FragmentBuilder::FinishTrack(TrackState& track, uint64_t end) { track.traf->FinishRuns(end); }

uint64_t FragmentBuilder::Place(uint64_t offset, MdatBox& mdat, bool isMoofFirst) {
  // A box must have its size when it becomes a child, so the track fragments come in only now.
  for (TrackState& track : tracks_) {
    if (track.isInFragment) {
      moof_->AddChildBox(std::move(track.traf));
    }
  }
  if (!isMoofFirst) {
    moof_->SetBeginOffset(mdat.GetEndOffset());
    return moof_->GetEndOffset();
  }
  moof_->SetBeginOffset(offset);
  mdat.SetBeginOffset(moof_->GetEndOffset());
  for (const auto& child : moof_->Children()) {
    if (child->GetBoxType() == TrafBox::kType) {
      static_cast<TrafBox&>(*child).IncrementBaseDataOffset(mdat.GetBeginOffset());
    }
  }
  return mdat.GetEndOffset();
}

void FragmentBuilder::WriteBoxes(MdatBox& mdat, bool isMoofFirst) {
  GatheredWrites gathered(*stream_);
  if (isMoofFirst) {
    moof_->WriteBox();
    mdat.WriteBox();
  } else {
    mdat.WriteBox();
    moof_->WriteBox();
  }
  gathered.Finish();
}

void FragmentBuilder::RememberFragment() {
  for (const auto& child : moof_->Children()) {
    if (child->GetBoxType() != TrafBox::kType) {
      continue;
    }
    const auto& traf = static_cast<const TrafBox&>(*child);
    TrackState& track = tracks_[traf.GetTrackId() - 1];
    track.earlierDurationOffset = track.pendingDurationOffset;
    track.earlierTimestamp = track.pendingTimestamp;
    track.pendingDurationOffset = traf.GetTruns().back()->LastSampleDurationOffset();
    track.pendingTimestamp = track.lastTime;
    for (; track.stampedEntries < track.entries.size(); ++track.stampedEntries) {
      track.entries[track.stampedEntries].moofOffset = moof_->GetBeginOffset();
    }
  }
}

void FragmentBuilder::ForgetFrom(uint64_t offset) {
  for (TrackState& track : tracks_) {
    if (track.pendingDurationOffset >= offset) {
      track.pendingDurationOffset = track.earlierDurationOffset;
      track.pendingTimestamp = track.earlierTimestamp;
    }
  }
}

void FragmentBuilder::DropFragment() {
  for (TrackState& track : tracks_) {
    track.traf.reset();
    track.isInFragment = false;
    track.entries.resize(track.stampedEntries);
  }
  moof_.reset();
}

}  // namespace qiro::k7m::impl
