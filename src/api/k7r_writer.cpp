#include "api/k7r_frame.h"
#include "api/new_sample.h"
#include "api/selection.h"
#include "base/gathering_stream.h"
#include "writer/handler_name.h"

namespace impl = qiro::k7m::impl;
using impl::ApiCall;
using impl::AsHandle;
using impl::AsWriter;
using impl::FourCc;
using impl::Impl;
using impl::Require;
using impl::RequireBytes;
using impl::RequireGood;
using impl::ThrowIf;
using impl::WriterCall;

QiroK7MError QiroK7RDocCreateNew(const QiroK7MIOStreamCallBacks* callBacks,
                                 const QiroK7MDocInfo* info,
                                 const QiroK7MAllocatorCallBacks* allocator, QiroK7RWriter** out) {
  return ApiCall([&] {
    Require(callBacks, info, allocator, out);
    auto stream = std::make_unique<impl::GatheringStream>(*callBacks);
    ThrowIf(info->timeScale == 0, kQiroK7MErrorZeroTimeScale);
    *out = AsHandle(new (allocator) impl::K7RWriter(std::move(stream), *info, allocator));
  });
}

QiroK7MError QiroK7RDocOpenForAppend(const QiroK7MIOStreamCallBacks* callBacks,
                                     const void* reserved,
                                     const QiroK7MAllocatorCallBacks* allocator, uint64_t keepLimit,
                                     uint64_t* lastFragment, QiroK7RWriter** out) {
  return ApiCall([&] {
    Require(callBacks, reserved, allocator, lastFragment, out);
    auto stream = std::make_unique<impl::GatheringStream>(*callBacks);
    uint64_t last = 0;
    *out = AsHandle(new (allocator) impl::K7RWriter(std::move(stream), keepLimit, last, allocator));
    *lastFragment = last;
  });
}

QiroK7MError QiroK7RWriterGetK7MWriterRef(QiroK7RWriter* writer, QiroK7MWriter** out) {
  return ApiCall([&] {
    Require(out);
    *out = AsWriter(writer);
  });
}

namespace {

std::vector<uint32_t> TrackIdsOf(QiroK7MTrack* const* tracks, uint32_t count) {
  std::vector<uint32_t> ids;
  ids.reserve(count);
  for (const impl::Track* track : impl::TracksOf(tracks, count)) {
    ids.push_back(track->GetTrackId());
  }
  return ids;
}

}  // namespace

QiroK7MError QiroK7RWriterAddHintTrack(QiroK7RWriter* writer, const QiroK7RHintTrackInfo* hint,
                                       const QiroK7MTrackInfo* info,
                                       const QiroK7MTrackEntriesInfo* entries,
                                       uint32_t maxSampleCount, const void* handlerName,
                                       QiroK7MTrack* const* referencedTracks,
                                       uint32_t referencedTrackCount, QiroK7MTrack** out) {
  return WriterCall(AsWriter(writer), [&] {
    constexpr uint32_t kSupportedProtocol = 2;
    Require(writer, hint, info, entries, out);
    ThrowIf(handlerName == nullptr && info->handlerNameLength != 0, kQiroK7MErrorInvalidArgument);
    const auto ids = TrackIdsOf(referencedTracks, referencedTrackCount);
    RequireGood(AsWriter(writer));
    QiroK7MTrackInfo hintInfo = *info;
    hintInfo.mediaType = FourCc("hint");
    ThrowIf(info->timeScale == 0, kQiroK7MErrorZeroTimeScale);
    ThrowIf(info->flags != 0, kQiroK7MErrorHintTrackFlags);
    ThrowIf(hint->hintProtocol != kSupportedProtocol, kQiroK7MErrorUnsupportedHintProtocol);
    ThrowIf(info->mediaType != 0 && info->mediaType != hintInfo.mediaType,
            kQiroK7MErrorMediaTypeMismatch);
    const auto name = impl::TerminatedHandlerName(handlerName, info->handlerNameLength);
    *out = AsHandle(Impl(writer).CreateNewTrack(hintInfo, *entries, maxSampleCount, name, ids));
  });
}

QiroK7MError QiroK7RWriterAddABST(QiroK7RWriter* writer, QiroK7MDataBuffer* payload,
                                  uint32_t length) {
  const impl::AutoCleanupDataBuffer cleanup(payload);
  return WriterCall(AsWriter(writer), [&] {
    Require(writer);
    RequireBytes(payload, length);
    RequireGood(AsWriter(writer));
    impl::BytesOf(payload, length);
    Impl(writer).AddAbst(payload, length, impl::K7RWriter::AbstPlace::kBehindAfra);
  });
}

QiroK7MError QiroK7RWriterStartFragment(QiroK7RWriter* writer, uint64_t* offset) {
  return WriterCall(AsWriter(writer), [&] {
    Require(writer, offset);
    RequireGood(AsWriter(writer));
    *offset = Impl(writer).StartK7RFragment();
  });
}

QiroK7MError QiroK7RWriterAddSampleWithAfra(QiroK7RWriter* writer, QiroK7MTrack* track,
                                            const QiroK7MSampleInfo* info, QiroK7MDataBuffer* data,
                                            uint32_t isRandomAccess) {
  const impl::AutoCleanupDataBuffer cleanup(data);
  return WriterCall(AsWriter(writer), [&] {
    Require(writer, track, info);
    RequireGood(AsWriter(writer));
    impl::Sample sample(*info, 0, nullptr, &Impl(track), nullptr);
    impl::CheckNewSample(Impl(track), sample, data);
    Impl(writer).AddSample(Impl(track).GetTrackId(), sample, data, isRandomAccess != 0);
  });
}

QiroK7MError QiroK7RWriterAddHintSample(QiroK7RWriter* writer, QiroK7MTrack* hintTrack,
                                        QiroK7MTrack* mediaTrack, QiroK7MDataBuffer* data,
                                        const QiroK7MSampleInfo* info,
                                        const QiroK7MHintSampleInfo* media,
                                        uint32_t isRandomAccess) {
  const impl::AutoCleanupDataBuffer cleanup(data);
  return WriterCall(AsWriter(writer), [&] {
    Require(writer, hintTrack, mediaTrack, info, media);
    impl::Sample sample(*info, 0, nullptr, &Impl(hintTrack), nullptr);
    ThrowIf(data == nullptr && !sample.IsGap(), kQiroK7MErrorInvalidArgument);
    RequireGood(AsWriter(writer));
    impl::CheckNewSample(Impl(hintTrack), sample, data);
    ThrowIf(uint64_t{media->mediaOffset} + media->mediaSize > info->sampleSize,
            kQiroK7MErrorInvalidArgument);
    Impl(writer).AddHintSample(Impl(hintTrack).GetTrackId(), Impl(mediaTrack).GetTrackId(), sample,
                               *media, data, isRandomAccess != 0);
  });
}

QiroK7MError QiroK7RCloseWriter(QiroK7RWriter* writer) {
  return QiroK7MCloseWriter(AsWriter(writer));
}

void QiroK7RDestroyWriter(QiroK7RWriter* writer) { QiroK7MDestroyWriter(AsWriter(writer)); }
