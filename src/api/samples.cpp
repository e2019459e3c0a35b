#include "api/selection.h"

namespace impl = qiro::k7m::impl;
using impl::ApiCall;
using impl::AsHandle;
using impl::Impl;
using impl::Require;
using impl::Time;

QiroK7MError QiroK7MReaderGetSamples(QiroK7MReader* reader, uint32_t startScale, uint64_t start,
                                     uint32_t endScale, uint64_t end, QiroK7MSampleIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    impl::RequireTimeScales(startScale, endScale);
    *out = AsHandle(
        Impl(reader)
            .GetSamples(Time(start, startScale), Time(end, endScale), Impl(reader).GetTracks())
            .release());
  });
}

QiroK7MError QiroK7MReaderGetSamplesByTracks(QiroK7MReader* reader, uint32_t startScale,
                                             uint64_t start, uint32_t endScale, uint64_t end,
                                             QiroK7MTrack* const* tracks, uint32_t count,
                                             QiroK7MSampleIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    auto selected = impl::TracksOf(tracks, count);
    impl::RequireTimeScales(startScale, endScale);
    *out =
        AsHandle(Impl(reader)
                     .GetSamples(Time(start, startScale), Time(end, endScale), std::move(selected))
                     .release());
  });
}

QiroK7MError QiroK7MReaderGetSamplesByMediaTypes(QiroK7MReader* reader, uint32_t startScale,
                                                 uint64_t start, uint32_t endScale, uint64_t end,
                                                 const uint32_t* mediaTypes, uint32_t count,
                                                 QiroK7MSampleIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    impl::RequireArray(mediaTypes, count);
    impl::RequireTimeScales(startScale, endScale);
    *out = AsHandle(Impl(reader)
                        .GetSamples(Time(start, startScale), Time(end, endScale),
                                    impl::SelectTracks(Impl(reader), mediaTypes, count))
                        .release());
  });
}

QiroK7MError QiroK7MReaderGetAllSamples(QiroK7MReader* reader, QiroK7MSampleIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    *out = AsHandle(Impl(reader).GetAllSamples(Impl(reader).GetTracks()).release());
  });
}

QiroK7MError QiroK7MReaderGetAllSamplesByTracks(QiroK7MReader* reader, QiroK7MTrack* const* tracks,
                                                uint32_t count, QiroK7MSampleIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    *out = AsHandle(Impl(reader).GetAllSamples(impl::TracksOf(tracks, count)).release());
  });
}

QiroK7MError QiroK7MReaderGetAllSamplesByMediaTypes(QiroK7MReader* reader,
                                                    const uint32_t* mediaTypes, uint32_t count,
                                                    QiroK7MSampleIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    impl::RequireArray(mediaTypes, count);
    auto tracks = impl::SelectTracks(Impl(reader), mediaTypes, count);
    *out = AsHandle(Impl(reader).GetAllSamples(std::move(tracks)).release());
  });
}

QiroK7MError QiroK7MReaderGetMediaSamples(QiroK7MReader* reader, QiroK7MTrack* const* tracks,
                                          uint32_t count, QiroK7MSampleIterator** out) {
  return ApiCall([&] {
    Require(reader, out);
    auto selected = impl::TracksOf(tracks, count);
    *out = AsHandle(
        Impl(reader)
            .GetMediaSamples(tracks == nullptr ? Impl(reader).GetTracks() : std::move(selected))
            .release());
  });
}

QiroK7MError QiroK7MSampleIteratorHasMoreEntries(QiroK7MSampleIterator* iterator,
                                                 uint32_t* hasMore) {
  return ApiCall([&] {
    Require(iterator, hasMore);
    *hasMore = Impl(iterator).HasMoreEntries() ? 1 : 0;
  });
}

QiroK7MError QiroK7MSampleIteratorGetNextEntry(QiroK7MSampleIterator* iterator,
                                               QiroK7MSample** out) {
  return ApiCall([&] {
    Require(iterator, out);
    *out = AsHandle(Impl(iterator).GetNextSample().release());
  });
}

void QiroK7MReleaseSampleIterator(QiroK7MSampleIterator* iterator) {
  if (iterator != nullptr) {
    delete &Impl(iterator);
  }
}

QiroK7MError QiroK7MSampleGetInfo(QiroK7MSample* sample, QiroK7MSampleInfo* info) {
  return ApiCall([&] {
    Require(sample, info);
    *info = Impl(sample).GetInfo();
  });
}

QiroK7MError QiroK7MSampleGetTrack(QiroK7MSample* sample, QiroK7MTrack** out) {
  return ApiCall([&] {
    Require(sample, out);
    *out = AsHandle(Impl(sample).GetTrack());
  });
}

QiroK7MError QiroK7MSampleGetSampleDescriptor(QiroK7MSample* sample,
                                              QiroK7MSampleDescriptor** out) {
  return ApiCall([&] {
    Require(sample, out);
    *out = AsHandle(Impl(sample).GetSampleDescriptor());
  });
}

QiroK7MError QiroK7MSampleCopyData(QiroK7MSample* sample, void* buffer) {
  return ApiCall([&] {
    Require(sample, buffer);
    Impl(sample).CopySampleData(buffer);
  });
}

void QiroK7MReleaseSample(QiroK7MSample* sample) {
  if (sample != nullptr) {
    delete &Impl(sample);
  }
}
