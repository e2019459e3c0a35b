#include "api/selection.h"

namespace impl = qiro::k7m::impl;
using impl::ApiCall;
using impl::AsHandle;
using impl::Impl;
using impl::Require;

QiroK7MError QiroK7MReaderGetTracks(QiroK7MReader* reader, QiroK7MTrackIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    *out = AsHandle(std::make_unique<impl::TrackCollection>(Impl(reader).GetTracks()).release());
  });
}

QiroK7MError QiroK7MReaderGetTracksByMediaTypes(QiroK7MReader* reader, const uint32_t* mediaTypes,
                                                uint32_t count, QiroK7MTrackIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    auto tracks = impl::SelectTracks(Impl(reader), mediaTypes, count);
    *out = AsHandle(std::make_unique<impl::TrackCollection>(std::move(tracks)).release());
  });
}

QiroK7MError QiroK7MTrackIteratorHasMoreEntries(QiroK7MTrackIterator* iterator, uint32_t* hasMore) {
  return ApiCall([&] {
    Require(iterator, hasMore);
    *hasMore = Impl(iterator).HasMore() ? 1 : 0;
  });
}

QiroK7MError QiroK7MTrackIteratorGetNextEntry(QiroK7MTrackIterator* iterator, QiroK7MTrack** out) {
  return ApiCall([&] {
    Require(iterator, out);
    *out = AsHandle(Impl(iterator).GetNext());
  });
}

void QiroK7MReleaseTrackIterator(QiroK7MTrackIterator* iterator) {
  if (iterator != nullptr) {
    delete &Impl(iterator);
  }
}

QiroK7MError QiroK7MReleaseTrack(QiroK7MTrack*) { return kQiroK7MErrorNone; }

QiroK7MError QiroK7MTrackGetInfo(QiroK7MTrack* track, QiroK7MTrackInfo* info) {
  return ApiCall([&] {
    Require(track, info);
    *info = Impl(track).GetInfo();
  });
}

QiroK7MError QiroK7MTrackGetEntriesInfo(QiroK7MTrack* track, QiroK7MTrackEntriesInfo* info) {
  return ApiCall([&] {
    Require(track, info);
    *info = Impl(track).GetEntriesInfo();
  });
}

QiroK7MError QiroK7MTrackGetSampleCount(QiroK7MTrack* track, uint32_t* count) {
  return ApiCall([&] {
    Require(track, count);
    *count = Impl(track).GetSampleCount();
  });
}

QiroK7MError QiroK7MTrackGetEditCount(QiroK7MTrack* track, uint32_t* count) {
  return ApiCall([&] {
    Require(track, count);
    *count = Impl(track).GetEditCount();
  });
}

QiroK7MError QiroK7MTrackGetEdit(QiroK7MTrack* track, uint32_t index, QiroK7MEdit* edit) {
  return ApiCall([&] {
    Require(track, edit);
    const impl::K7MEditListEntry& entry = Impl(track).GetEdit(index);
    *edit = {sizeof(QiroK7MEdit), entry.HasZeroRate() ? 0U : 1U, entry.segmentDuration,
             entry.mediaTime};
  });
}
