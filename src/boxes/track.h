#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "boxes/root_box.h"
#include "boxes/sample_descriptor.h"
#include "boxes/track_boxes.h"
#include "k7m/track.h"

namespace qiro::k7m::impl {

/// A list with a cursor: what the public track and descriptor iterators are.
template <class T>
class Collection {
 public:
  explicit Collection(std::vector<T*> entries) : entries_(std::move(entries)) {}

  bool HasMore() const { return next_ < entries_.size(); }
  /// Null at the end.
  T* GetNext() { return HasMore() ? entries_[next_++] : nullptr; }

 private:
  std::vector<T*> entries_;
  size_t next_ = 0;
};

class Track;
using TrackCollection = Collection<Track>;
using SampleDescriptorCollection = Collection<SampleDescriptor>;

/// A track as the client sees it: a view of a 'trak' and its records. Lives on the ordinary heap.
class Track {
 public:
  /// Neither box is owned.
  Track(TrakBox* trak, RootBox* root);

  TrakBox* GetTrakBox() const { return trak_; }
  RootBox* GetRootBox() const { return root_; }
  const QiroK7MTrackInfo& GetInfo() const { return info_; }
  const QiroK7MTrackEntriesInfo& GetEntriesInfo() const { return entriesInfo_; }
  /// 0 without a 'tkhd'.
  uint32_t GetTrackId() const {
    const TkhdBox* tkhd = trak_->GetTrackHeaderBox();
    return tkhd == nullptr ? 0 : tkhd->GetTrackID();
  }
  uint32_t GetMediaType() const { return info_.mediaType; }
  uint32_t GetTimeScale() const { return info_.timeScale; }
  void CopyHandlerName(void* buffer) const;

  uint32_t GetSampleCount() const;
  /// In 'stsd' order. Error 7 without an 'stsd'.
  std::unique_ptr<SampleDescriptorCollection> GetSampleDescriptorCollection() const;

  uint32_t GetEditCount() const;
  /// Error 20 for an index past the end.
  const K7MEditListEntry& GetEdit(uint32_t index) const;

 private:
  void FillEntriesInfo();
  void FillFromHeader();
  void FillFromMedia();

  TrakBox* trak_;
  RootBox* root_;
  QiroK7MTrackInfo info_{};
  QiroK7MTrackEntriesInfo entriesInfo_{};
  std::vector<uint8_t> handlerName_;
};

}  // namespace qiro::k7m::impl
