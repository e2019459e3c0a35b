#include "api/frame.h"
#include "base/client_streams.h"

namespace impl = qiro::k7m::impl;
using impl::ApiCall;
using impl::Impl;
using impl::Require;

QiroK7MError QiroK7MDocIsK7M(const QiroK7MIStreamCallBacks* callBacks,
                             const QiroK7MAllocatorCallBacks* allocator, uint32_t* isK7M) {
  return ApiCall([&] {
    Require(callBacks, allocator, isK7M);
    impl::QiroK7MIStream stream(*callBacks, impl::WarningHandler());
    *isK7M = impl::Reader::IsK7M(stream) ? 1 : 0;
  });
}

namespace {

QiroK7MError OpenForRead(const QiroK7MIStreamCallBacks* callBacks,
                         const QiroK7MWarningHandlerCallBacks* warning,
                         const QiroK7MAllocatorCallBacks* allocator, uint32_t readRules,
                         QiroK7MReader** out) {
  return ApiCall([&] {
    Require(callBacks, warning, allocator, out);
    auto stream = std::make_unique<impl::QiroK7MIStream>(*callBacks, impl::WarningHandler(warning));
    *out = impl::AsHandle(new (allocator) impl::Reader(std::move(stream), readRules, allocator));
  });
}

}  // namespace

QiroK7MError QiroK7MDocOpenForRead(const QiroK7MIStreamCallBacks* callBacks,
                                   const QiroK7MWarningHandlerCallBacks* warning,
                                   const QiroK7MAllocatorCallBacks* allocator,
                                   QiroK7MReader** out) {
  return OpenForRead(callBacks, warning, allocator, 0, out);
}

QiroK7MError QiroK7MDocOpenForReadWithOptions(const QiroK7MIStreamCallBacks* callBacks,
                                              const QiroK7MWarningHandlerCallBacks* warning,
                                              const QiroK7MAllocatorCallBacks* allocator,
                                              const QiroK7MReadOptions* options,
                                              QiroK7MReader** out) {
  return ApiCall([&] {
    Require(callBacks, warning, allocator, options, out);
    const QiroK7MError failure = OpenForRead(callBacks, warning, allocator, options->flags, out);
    impl::ThrowIf(failure != kQiroK7MErrorNone, failure);
  });
}

void QiroK7MCloseReader(QiroK7MReader* reader) {
  if (reader != nullptr) {
    delete &Impl(reader);
  }
}

QiroK7MError QiroK7MReaderGetDocInfo(QiroK7MReader* reader, QiroK7MDocInfo* info) {
  return ApiCall([&] {
    Require(reader, info);
    *info = Impl(reader).GetDocInfo();
  });
}

QiroK7MError QiroK7MReaderGetUlbDataLength(QiroK7MReader* reader, uint32_t* length) {
  return ApiCall([&] {
    Require(reader, length);
    *length = Impl(reader).GetUlbDataLen();
  });
}

QiroK7MError QiroK7MReaderCopyUlbData(QiroK7MReader* reader, void* buffer) {
  return ApiCall([&] {
    Require(reader, buffer);
    Impl(reader).CopyUlbData(buffer);
  });
}

QiroK7MError QiroK7MReaderCopyHandlerName(QiroK7MTrack* track, void* buffer) {
  return ApiCall([&] {
    Require(track, buffer);
    Impl(track).CopyHandlerName(buffer);
  });
}
