#pragma once

#include "base/guarded_call.h"
#include "boxes/sample.h"
#include "boxes/track.h"
#include "k7m/k7m.h"
#include "reader/reader.h"
#include "reader/sample_iterator.h"

namespace qiro::k7m::impl {

/// Every exported function is one call of this: nothing but a code leaves it.
template <class Work>
QiroK7MError ApiCall(Work&& work) noexcept {
  return GuardedCall(std::forward<Work>(work));
}

/// Error 20 when one of the pointers is null.
template <class... Pointers>
void Require(const Pointers*... pointers) {
  ThrowIf(((pointers == nullptr) || ...), kQiroK7MErrorInvalidArgument);
}

/// What stands behind a handle, and the handle of an object.
#define K7M_HANDLE(Handle, Object)                                                   \
  inline Object& Impl(Handle* handle) { return *reinterpret_cast<Object*>(handle); } \
  inline Handle* AsHandle(Object* object) { return reinterpret_cast<Handle*>(object); }

K7M_HANDLE(QiroK7MReader, Reader)
K7M_HANDLE(QiroK7MTrack, Track)
K7M_HANDLE(QiroK7MTrackIterator, TrackCollection)
K7M_HANDLE(QiroK7MSampleDescriptor, SampleDescriptor)
K7M_HANDLE(QiroK7MSampleDescriptorIterator, SampleDescriptorCollection)
K7M_HANDLE(QiroK7MSample, Sample)
K7M_HANDLE(QiroK7MSampleIterator, SampleIterator)

#undef K7M_HANDLE

}  // namespace qiro::k7m::impl
