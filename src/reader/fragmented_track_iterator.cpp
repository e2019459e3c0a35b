#include "reader/fragmented_track_iterator.h"

#include <algorithm>

namespace qiro::k7m::impl {
namespace {

/// The non-sync bit, and the bit of the depends-on field that means "depends on others".
constexpr uint32_t kNotKeyMask = 0x01010000;

/// The sample at the cursor. A description index that names no entry raises warning 3077, and
/// `isValid` becomes false: the track then ends with this sample.
std::unique_ptr<Sample> MakeRunSample(const FragmentCursor& fragments, uint64_t timeStamp,
                                      SampleMaker& maker, const QiroK7MStream& stream,
                                      bool& isValid) {
  const SampleInfoTrun& run = fragments.Current();
  auto sample = maker.Make(
      timeStamp, {.size = run.size,
                  .compositionOffset = run.compositionOffset,
                  .flags = (run.flags & kNotKeyMask) == 0 ? uint32_t{kQiroK7MSampleFlagKey} : 0,
                  .dataOffset = run.dataOffset,
                  .descriptionIndex = fragments.DescriptionIndex()});
  isValid = sample->GetSampleDescriptor() != nullptr;
  if (!isValid) {
    stream.RaiseWarning(kQiroK7MWarningUnknownSampleDescription);
  }
  return sample;
}

}  // namespace

FragmentedTrackIterator::FragmentedTrackIterator(Track* track, SampleDataCache* cache,
                                                 QiroK7MStream* stream, const Time& start,
                                                 const Time& end)
    : samples_(track, cache), stream_(stream), edits_(*track, start, end), fragments_(*track) {
  while (edits_.HasMoreEntries() && !edits_.IsGap() && !PositionInEdit()) {
    edits_.Next();
  }
}

bool FragmentedTrackIterator::PositionInEdit() {
  const MediaInterval interval = edits_.Interval();
  mediaEnd_ = interval.end;
  const uint64_t begin = std::max(interval.begin, edits_.MediaTime());
  return begin < mediaEnd_ && fragments_.Position(begin) && HasMoreNonGapEntries();
}

void FragmentedTrackIterator::Settle() {
  if (!wasHandedOut_) {
    return;
  }
  wasHandedOut_ = false;
  if (!edits_.IsGap()) {
    fragments_.Next();
    if (HasMoreNonGapEntries()) {
      return;
    }
  }
  do {
    edits_.Next();
  } while (edits_.HasMoreEntries() && !edits_.IsGap() && !PositionInEdit());
}

bool FragmentedTrackIterator::HasMoreEntries() {
  if (!isValid_) {
    return false;
  }
  Settle();
  return edits_.HasMoreEntries();
}

std::unique_ptr<Sample> FragmentedTrackIterator::GetNextSample() {
  if (!HasMoreEntries()) {
    return nullptr;
  }
  std::unique_ptr<Sample> sample;
  if (edits_.IsGap()) {
    sample = samples_.MakeGap(edits_.SegmentStart());
  } else {
    const uint64_t timeStamp =
        edits_.SegmentStart() + fragments_.Current().timeStamp - edits_.MediaTime();
    sample = MakeRunSample(fragments_, timeStamp, samples_, *stream_, isValid_);
  }
  wasHandedOut_ = true;
  return sample;
}

FragmentedMediaTrackIterator::FragmentedMediaTrackIterator(Track* track, SampleDataCache* cache,
                                                           QiroK7MStream* stream)
    : samples_(track, cache), stream_(stream), inMovieBox_(track, cache), fragments_(*track) {}

bool FragmentedMediaTrackIterator::HasMoreEntries() {
  if (!isInFragments_) {
    if (inMovieBox_.HasMoreEntries()) {
      return true;
    }
    isInFragments_ = true;
    fragments_.PositionAtFirst();
  } else if (wasHandedOut_) {
    wasHandedOut_ = false;
    fragments_.Next();
  }
  return isValid_ && fragments_.HasMoreEntries();
}

std::unique_ptr<Sample> FragmentedMediaTrackIterator::GetNextSample() {
  if (!HasMoreEntries()) {
    return nullptr;
  }
  if (!isInFragments_) {
    return inMovieBox_.GetNextSample();
  }
  auto sample =
      MakeRunSample(fragments_, fragments_.Current().timeStamp, samples_, *stream_, isValid_);
  wasHandedOut_ = true;
  return sample;
}

}  // namespace qiro::k7m::impl
