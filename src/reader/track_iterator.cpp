#include "reader/track_iterator.h"

namespace qiro::k7m::impl {
namespace {

/// The sample at the cursor. `isValid` becomes false when its description index names no entry: the
/// track then ends with this sample.
std::unique_ptr<Sample> MakeTableSample(const SampleTableCursor& tables, uint64_t timeStamp,
                                        SampleMaker& maker, bool& isValid) {
  const uint32_t dependency = uint32_t{tables.Dependency()} << kQiroK7MSampleDependencyShift;
  auto sample = maker.Make(
      timeStamp, {.size = tables.Size(),
                  .compositionOffset = tables.CompositionOffset(),
                  .flags = dependency | (tables.IsKey() ? uint32_t{kQiroK7MSampleFlagKey} : 0),
                  .dataOffset = tables.DataOffset(),
                  .descriptionIndex = tables.DescriptionIndex()});
  isValid = sample->GetSampleDescriptor() != nullptr;
  return sample;
}

}  // namespace

TrackIterator::TrackIterator(Track* track, SampleDataCache* cache, const Time& start,
                             const Time& end)
    : track_(track), samples_(track, cache), edits_(*track, start, end) {
  while (edits_.HasMoreEntries() && !edits_.IsGap() && !PositionInEdit()) {
    edits_.Next();
  }
}

bool TrackIterator::PositionInEdit() {
  if (!tables_) {
    tables_.emplace(*track_);
  }
  const MediaInterval interval = edits_.Interval();
  if (!isValid_ || (!interval.isEndIncluded && interval.end == 0)) {
    return false;
  }
  const uint64_t mediaTime = edits_.MediaTime();
  const uint64_t last = interval.isEndIncluded ? interval.end : interval.end - 1;
  SttsIterator times = tables_->FindByDecodeTime(interval.begin, last);
  // Rounding may have put the begin before the edit's media time, and the search may give the last
  // sample of a run that ends before the begin: no sample before the media time belongs to the
  // edit.
  times.SkipBefore(mediaTime);
  // Times that wrap put the runs out of order.
  if (times.HasMoreEntries() && times->decodeTime < mediaTime) {
    return false;
  }
  const bool hasSample = tables_->Position(times);
  isValid_ = !tables_->IsTrackAtEnd();
  return hasSample;
}

void TrackIterator::Settle() {
  if (!wasHandedOut_) {
    return;
  }
  wasHandedOut_ = false;
  if (!edits_.IsGap()) {
    tables_->Next();
    isValid_ = isValid_ && !tables_->IsTrackAtEnd();
    if (tables_->HasMoreEntries() || !isValid_) {
      return;
    }
  }
  do {
    edits_.Next();
  } while (edits_.HasMoreEntries() && !edits_.IsGap() && !PositionInEdit());
}

bool TrackIterator::HasMoreEntries() {
  if (!isValid_) {
    return false;
  }
  Settle();
  return isValid_ && edits_.HasMoreEntries();
}

std::unique_ptr<Sample> TrackIterator::GetNextSample() {
  if (!HasMoreEntries()) {
    return nullptr;
  }
  if (edits_.IsGap()) {
    auto gap = samples_.MakeGap(edits_.SegmentStart());
    wasHandedOut_ = true;
    return gap;
  }
  const uint64_t timeStamp = edits_.SegmentStart() + tables_->DecodeTime() - edits_.MediaTime();
  auto sample = MakeTableSample(*tables_, timeStamp, samples_, isValid_);
  wasHandedOut_ = true;
  return sample;
}

MediaTrackIterator::MediaTrackIterator(Track* track, SampleDataCache* cache)
    : samples_(track, cache), tables_(*track) {
  tables_.Position(tables_.AllSamples());
}

bool MediaTrackIterator::HasMoreEntries() {
  if (wasHandedOut_) {
    wasHandedOut_ = false;
    tables_.Next();
  }
  return isValid_ && tables_.HasMoreEntries();
}

std::unique_ptr<Sample> MediaTrackIterator::GetNextSample() {
  if (!HasMoreEntries()) {
    return nullptr;
  }
  auto sample = MakeTableSample(tables_, tables_.DecodeTime(), samples_, isValid_);
  wasHandedOut_ = true;
  return sample;
}

}  // namespace qiro::k7m::impl
