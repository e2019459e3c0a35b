#pragma once

#include <optional>

#include "reader/edit_cursor.h"
#include "reader/fragment_cursor.h"
#include "reader/sample_iterator.h"
#include "reader/track_iterator.h"

namespace qiro::k7m::impl {

/// The samples of one track of a fragmented document: those of its fragments that the edits show in
/// a range of the presentation timeline, with one gap sample for each empty edit. The end of the
/// range is excluded.
class FragmentedTrackIterator final : public SampleIterator {
 public:
  FragmentedTrackIterator(Track* track, SampleDataCache* cache, QiroK7MStream* stream,
                          const Time& start, const Time& end);

  bool HasMoreEntries() override;
  std::unique_ptr<Sample> GetNextSample() override;

 private:
  void Settle();
  bool PositionInEdit();
  bool HasMoreNonGapEntries() const {
    return fragments_.HasMoreEntries() && fragments_.Current().timeStamp < mediaEnd_;
  }

  SampleMaker samples_;
  QiroK7MStream* stream_;
  EditCursor edits_;
  FragmentCursor fragments_;
  uint64_t mediaEnd_ = 0;
  bool isValid_ = true;
  bool wasHandedOut_ = false;
};

/// The samples of one track of a fragmented document as they lie in the file: those of the movie
/// box, then those of the fragments.
class FragmentedMediaTrackIterator final : public SampleIterator {
 public:
  FragmentedMediaTrackIterator(Track* track, SampleDataCache* cache, QiroK7MStream* stream);

  bool HasMoreEntries() override;
  std::unique_ptr<Sample> GetNextSample() override;

 private:
  SampleMaker samples_;
  QiroK7MStream* stream_;
  MediaTrackIterator inMovieBox_;
  FragmentCursor fragments_;
  bool isInFragments_ = false;
  bool isValid_ = true;
  bool wasHandedOut_ = false;
};

}  // namespace qiro::k7m::impl
