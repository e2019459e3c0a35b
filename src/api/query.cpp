#include "k7m/query.h"

#include "api/frame.h"
#include "base/client_streams.h"
#include "query/query_servicer.h"

namespace impl = qiro::k7m::impl;
using impl::ApiCall;
using impl::Require;

namespace {

impl::K7RQueryServicer& Impl(QiroK7RQueryServicer* handle) {
  return *reinterpret_cast<impl::K7RQueryServicer*>(handle);
}

std::unique_ptr<impl::QiroK7MStream> StreamOf(const QiroK7MIStreamCallBacks* callBacks) {
  return callBacks == nullptr
             ? nullptr
             : std::make_unique<impl::QiroK7MIStream>(*callBacks, impl::WarningHandler());
}

}  // namespace

QiroK7MError QiroK7RQueryServicerCreate(const QiroK7MIStreamCallBacks* fragmentFile,
                                        const QiroK7MIStreamCallBacks* indexFile,
                                        const QiroK7MAllocatorCallBacks* allocator,
                                        QiroK7RQueryServicer** out) {
  return ApiCall([&] {
    Require(fragmentFile, allocator, out);
    auto fragments = StreamOf(fragmentFile);
    auto index = StreamOf(indexFile);
    *out = reinterpret_cast<QiroK7RQueryServicer*>(
        new (allocator) impl::K7RQueryServicer(std::move(fragments), std::move(index), allocator));
  });
}

QiroK7MError QiroK7RQueryServicerGetFragment(QiroK7RQueryServicer* servicer,
                                             uint32_t fragmentNumber, uint32_t segmentNumber,
                                             uint32_t* size, void** data) {
  return ApiCall([&] {
    Require(servicer, size, data);
    Impl(servicer).GetFragment(fragmentNumber, segmentNumber, size, data);
  });
}

QiroK7MError QiroK7RCloseQueryServicer(QiroK7RQueryServicer* servicer) {
  if (servicer != nullptr) {
    delete &Impl(servicer);
  }
  return kQiroK7MErrorNone;
}
