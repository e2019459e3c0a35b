#include "api/writer_frame.h"
#include "base/gathering_stream.h"
#include "writer/handler_name.h"

namespace impl = qiro::k7m::impl;
using impl::ApiCall;
using impl::AsHandle;
using impl::Impl;
using impl::Require;
using impl::RequireBytes;
using impl::RequireGood;
using impl::ThrowIf;
using impl::WriterCall;

QiroK7MError QiroK7MDocCreateNew(const QiroK7MIOStreamCallBacks* callBacks,
                                 const QiroK7MDocInfo* info,
                                 const QiroK7MAllocatorCallBacks* allocator, QiroK7MWriter** out) {
  return ApiCall([&] {
    Require(callBacks, info, allocator, out);
    auto stream = std::make_unique<impl::GatheringStream>(*callBacks);
    ThrowIf(info->timeScale == 0, kQiroK7MErrorZeroTimeScale);
    *out = AsHandle(new (allocator) impl::Writer(std::move(stream), *info, allocator));
  });
}

QiroK7MError QiroK7MWriterAddTrack(QiroK7MWriter* writer, const QiroK7MTrackInfo* info,
                                   const QiroK7MTrackEntriesInfo* entries, uint32_t maxSampleCount,
                                   const void* handlerName, QiroK7MTrack** out) {
  return WriterCall(writer, [&] {
    Require(writer, info, entries, out);
    ThrowIf(handlerName == nullptr && info->handlerNameLength != 0, kQiroK7MErrorInvalidArgument);
    RequireGood(writer);
    ThrowIf(info->timeScale == 0, kQiroK7MErrorZeroTimeScale);
    const auto name = impl::TerminatedHandlerName(handlerName, info->handlerNameLength);
    *out = AsHandle(Impl(writer).CreateNewTrack(*info, *entries, maxSampleCount, name, {}));
  });
}

QiroK7MError QiroK7MWriterSetUlb(QiroK7MWriter* writer, QiroK7MDataBuffer* metadata,
                                 uint32_t length) {
  const impl::AutoCleanupDataBuffer cleanup(metadata);
  return WriterCall(writer, [&] {
    constexpr uint32_t kMaxMetadataLength = 0x4000000;
    Require(writer);
    RequireBytes(metadata, length);
    RequireGood(writer);
    ThrowIf(length > kMaxMetadataLength, kQiroK7MErrorMetadataTooLarge);
    Impl(writer).SetUlbBox(impl::BytesOf(metadata, length));
  });
}

QiroK7MError QiroK7MWriterAddFullBox(QiroK7MWriter* writer, uint32_t type, uint32_t version,
                                     uint32_t flags, QiroK7MDataBuffer* payload, uint32_t length) {
  const impl::AutoCleanupDataBuffer cleanup(payload);
  return WriterCall(writer, [&] {
    Require(writer);
    RequireBytes(payload, length);
    RequireGood(writer);
    Impl(writer).AddFullBox(type, version != 0 ? 1 : 0, flags, impl::BytesOf(payload, length));
  });
}

QiroK7MError QiroK7MWriterGetDocInfo(QiroK7MWriter* writer, QiroK7MDocInfo* info) {
  return WriterCall(writer, [&] {
    Require(writer, info);
    RequireGood(writer);
    *info = Impl(writer).GetDocInfo();
  });
}

QiroK7MError QiroK7MWriterGetTracks(QiroK7MWriter* writer, QiroK7MTrackIterator** out) {
  return WriterCall(writer, [&] {
    Require(writer, out);
    RequireGood(writer);
    *out = AsHandle(Impl(writer).GetTracks().release());
  });
}

QiroK7MError QiroK7MWriterFlush(QiroK7MWriter* writer) {
  return WriterCall(writer, [&] {
    Require(writer);
    RequireGood(writer);
    Impl(writer).FlushWriter();
  });
}

QiroK7MError QiroK7MCloseWriter(QiroK7MWriter* writer) {
  return WriterCall(writer, [&] {
    Require(writer);
    Impl(writer).Close();
  });
}

void QiroK7MDestroyWriter(QiroK7MWriter* writer) {
  if (writer != nullptr) {
    delete &Impl(writer);
  }
}
