#include "api/frame.h"
#include "base/error_names.h"

namespace impl = qiro::k7m::impl;

const char* QiroK7MGetLibraryVersion() { return "QIROX_INFO BUILDVERSION : 61.3261"; }

const char* QiroK7MErrorName(QiroK7MError code) { return impl::ErrorName(code); }

const char* QiroK7MErrorText(QiroK7MError code) { return impl::ErrorText(code); }

QiroK7MError QiroK7MCreateAllocator(void*, const QiroK7MAllocatorCallBacks*, Allocator**) {
  return kQiroK7MErrorNone;
}

QiroK7MError QiroK7MReleaseAllocator(Allocator*) { return kQiroK7MErrorNone; }

QiroK7MError QiroK7MCreateIStream(void*, const QiroK7MIStreamCallBacks*,
                                  const QiroK7MAllocatorCallBacks*, QiroK7MIStream** out) {
  return impl::ApiCall([&] {
    impl::Require(out);
    *out = nullptr;
  });
}

QiroK7MError QiroK7MReleaseIStream(QiroK7MIStream*) { return kQiroK7MErrorNone; }

QiroK7MError QiroK7MCreateIOStream(void*, const QiroK7MIOStreamCallBacks*,
                                   const QiroK7MAllocatorCallBacks*, QiroK7MIOStream** out) {
  return impl::ApiCall([&] {
    impl::Require(out);
    *out = nullptr;
  });
}

QiroK7MError QiroK7MReleaseIOStream(QiroK7MIOStream*) { return kQiroK7MErrorNone; }
