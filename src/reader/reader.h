#pragma once

#include <memory>
#include <span>

#include "base/opened_stream.h"
#include "base/time.h"
#include "boxes/sample.h"
#include "boxes/track.h"
#include "reader/document.h"
#include "reader/sample_iterator.h"

namespace qiro::k7m::impl {

/// A document open for reading: its stream, box tree, tracks and sample data.
class Reader final : public K7MBase {
 public:
  /// Parses up to the movie box and the first 'mdat'. Error 6 without a movie box.
  /// `readRules` is a sum of ReadRule values.
  Reader(std::unique_ptr<QiroK7MStream> stream, uint32_t readRules,
         const QiroK7MAllocatorCallBacks* allocator);

  /// True when the first box is 'ftyp', 'moov' or 'mdat', deliberately no other.
  static bool IsK7M(QiroK7MStream& stream);

  K7MDocument* GetK7MDocument() const { return document_.get(); }
  /// Error 22 without a movie header.
  QiroK7MDocInfo GetDocInfo() const;
  /// 0 without a metadata box.
  uint32_t GetUlbDataLen() const;
  /// Does nothing without a metadata box.
  void CopyUlbData(void* buffer) const;

  /// All tracks, in file order.
  std::vector<Track*> GetTracks() const;
  /// The tracks of the given media types, in file order.
  std::vector<Track*> FilterTracksByMediaType(std::span<const uint32_t> mediaTypes) const;

  /// The samples of some tracks in a range of the presentation timeline, merged.
  std::unique_ptr<SampleIterator> GetSamples(const Time& start, const Time& end,
                                             std::vector<Track*> tracks);
  /// The same from 0 to ten years of 365 days.
  std::unique_ptr<SampleIterator> GetAllSamples(std::vector<Track*> tracks);
  /// The samples of some tracks as they lie in the file, merged.
  std::unique_ptr<SampleIterator> GetMediaSamples(std::vector<Track*> tracks);

 private:
  void MakeTracks();

  OpenedStream stream_;
  std::unique_ptr<K7MDocument> document_;
  SampleDataCache dataCache_;
  K7MVector<std::unique_ptr<Track>> tracks_;
};

}  // namespace qiro::k7m::impl
