#pragma once

#include <optional>

#include "reader/edit_cursor.h"
#include "reader/sample_iterator.h"
#include "reader/sample_maker.h"
#include "reader/sample_table_cursor.h"

namespace qiro::k7m::impl {

/// The samples of one track of a plain document: those that the edits show in a range of the
/// presentation timeline, with one gap sample for each empty edit.
class TrackIterator final : public SampleIterator {
 public:
  TrackIterator(Track* track, SampleDataCache* cache, const Time& start, const Time& end);

  bool HasMoreEntries() override;
  std::unique_ptr<Sample> GetNextSample() override;

 private:
  /// Moves on from a sample that was handed out, to where the next one is.
  void Settle();
  /// False when the current edit shows no sample.
  bool PositionInEdit();

  Track* track_;
  SampleMaker samples_;
  EditCursor edits_;
  /// Made when the first edit that is not a gap is met.
  std::optional<SampleTableCursor> tables_;
  bool isValid_ = true;
  bool wasHandedOut_ = false;
};

/// The samples of one track of a plain document as they lie in the file: on the media timeline,
/// without edits.
class MediaTrackIterator final : public SampleIterator {
 public:
  MediaTrackIterator(Track* track, SampleDataCache* cache);

  bool HasMoreEntries() override;
  std::unique_ptr<Sample> GetNextSample() override;

 private:
  SampleMaker samples_;
  SampleTableCursor tables_;
  bool isValid_ = true;
  bool wasHandedOut_ = false;
};

}  // namespace qiro::k7m::impl
