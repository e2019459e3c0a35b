#pragma once

#include "boxes/field_box.h"
#include "boxes/tfhd_box.h"
#include "boxes/track_fragments.h"
#include "boxes/trun_box.h"

namespace qiro::k7m::impl {

/// Movie fragment header ('mfhd', ISO/IEC 14496-12 8.8.5), in 'moof'.
class MfhdBox final : public FieldBox<MfhdBox, FullBox> {
 public:
  static constexpr uint32_t kType = FourCc("mfhd");

  using FieldBox::FieldBox;
  MfhdBox(QiroK7MStream* stream, uint32_t sequenceNumber,
          const QiroK7MAllocatorCallBacks* allocator)
      : FieldBox(stream, kType, 0, 0, allocator), sequenceNumber_(sequenceNumber) {
    AccountForPayload();
  }

  template <class Walk>
  void Fields(Walk& walk) {
    walk.U32("sequence_number", sequenceNumber_);
  }

  uint32_t GetSequenceNumber() const { return sequenceNumber_; }

 private:
  uint32_t sequenceNumber_ = 0;
};

/// Track fragment ('traf', ISO/IEC 14496-12 8.8.6), in 'moof': runs of one track.
class TrafBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("traf");
  /// The start time (ISO/IEC 14496-12 8.8.12). It is a plain box unless it is asked for.
  static constexpr uint32_t kTfdtType = FourCc("tfdt");

  TrafBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator);

  TrafBox(QiroK7MStream* stream, uint32_t trackId, uint64_t baseDataOffset,
          uint32_t descriptionIndex, const QiroK7MAllocatorCallBacks* allocator);

  /// Writing form: adds a sample behind the others; the one before it lasts until this one. True
  /// when it starts a run, because its bytes do not follow those of the one before.
  bool AddSample(const SampleInfoTrun& sample);
  /// Ends the last sample at `end`; takes the runs as children. Then the box has its size.
  void FinishRuns(uint64_t end);
  void UpdateSDId(uint32_t index) { tfhd_->UpdateSDId(index); }
  void IncrementBaseDataOffset(uint64_t delta) { tfhd_->IncrementBaseDataOffset(delta); }

  void AddChildBox(std::unique_ptr<Box> child) override;
  std::span<const MandatoryBox> GetMandatoryBoxes() const override;
  /// Resolves defaults, data offsets and times. Error 24 without a 'tfhd', 14 in a document without
  /// 'mvex', 25 when that has nothing about the track.
  void CompleteReadChildBoxes(RootBox* root, bool validate) override;

  uint32_t GetTrackId() const { return tfhd_ == nullptr ? 0 : tfhd_->GetTrackId(); }
  /// After the defaults of the movie box.
  uint32_t GetSDId() const { return tfhd_ == nullptr ? 0 : tfhd_->GetSDId(); }
  /// In file order; of those that were read, only the ones with samples.
  const K7MVector<TrunBox*>& GetTruns() const { return truns_; }
  /// Whether a 'tfdt' with this word of version and flags has 64 bits.
  static bool IsStartTimeWide(uint32_t word) { return word >> 24 == 1; }

  /// Its samples, when it was read.
  const TrackFragment& GetFragment() const { return fragment_; }
  bool HasSamples() const { return fragment_.sampleCount != 0; }
  uint64_t GetSampleCount() const { return fragment_.sampleCount; }
  /// Both need a sample.
  uint64_t GetFirstSampleTimeStamp() const { return fragment_.startTime; }
  uint64_t GetLastSampleEndTime() const { return fragment_.endTime; }
  bool TimesWrap() const { return fragment_.timesWrap; }

 private:
  uint64_t StartTime(const RootBox& root);
  uint64_t ReadStartTime(Box& tfdt);
  void CompleteRuns(RootBox* root, bool validate);

  TfhdBox* tfhd_ = nullptr;
  K7MVector<TrunBox*> truns_;
  /// Writing form: runs before they are children.
  K7MVector<std::unique_ptr<TrunBox>> newRuns_;
  uint64_t lastTime_ = 0;
  /// Of a box that was read: its samples, and their runs.
  TrackFragment fragment_;
  RecordTable<TrackRun> runs_;
};

/// Movie fragment ('moof', ISO/IEC 14496-12 8.8.4), at the top level.
class MoofBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("moof");

  using Box::Box;
  MoofBox(QiroK7MStream* stream, uint32_t sequenceNumber,
          const QiroK7MAllocatorCallBacks* allocator)
      : Box(stream, kType, allocator) {
    MoofBox::AddChildBox(MakeBox<MfhdBox>(allocator, stream, sequenceNumber));
  }

  void AddChildBox(std::unique_ptr<Box> child) override;
  std::span<const MandatoryBox> GetMandatoryBoxes() const override;

  /// 0 without an 'mfhd'.
  uint32_t GetSequenceNumber() const { return mfhd_ == nullptr ? 0 : mfhd_->GetSequenceNumber(); }

 private:
  MfhdBox* mfhd_ = nullptr;
};

}  // namespace qiro::k7m::impl
