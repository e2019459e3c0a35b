#include <cstring>

#include "api/frame.h"

namespace impl = qiro::k7m::impl;
using impl::ApiCall;
using impl::AsHandle;
using impl::Impl;
using impl::Require;

QiroK7MError QiroK7MTrackGetSampleDescriptors(QiroK7MTrack* track,
                                              QiroK7MSampleDescriptorIterator** out) {
  return ApiCall([&] {
    Require(track, out);
    *out = AsHandle(Impl(track).GetSampleDescriptorCollection().release());
  });
}

QiroK7MError QiroK7MSampleDescriptorIteratorHasMoreEntries(
    QiroK7MSampleDescriptorIterator* iterator, uint32_t* hasMore) {
  return ApiCall([&] {
    Require(iterator, hasMore);
    *hasMore = Impl(iterator).HasMore() ? 1 : 0;
  });
}

QiroK7MError QiroK7MSampleDescriptorIteratorGetNextEntry(QiroK7MSampleDescriptorIterator* iterator,
                                                         QiroK7MSampleDescriptor** out) {
  return ApiCall([&] {
    Require(iterator, out);
    *out = AsHandle(Impl(iterator).GetNext());
  });
}

QiroK7MError QiroK7MReleaseSampleDescriptorIterator(QiroK7MSampleDescriptorIterator* iterator) {
  if (iterator != nullptr) {
    delete &Impl(iterator);
  }
  return kQiroK7MErrorNone;
}

QiroK7MError QiroK7MReleaseSampleDescriptor(QiroK7MSampleDescriptor*) { return kQiroK7MErrorNone; }

QiroK7MError QiroK7MSampleDescriptorGetInfo(QiroK7MSampleDescriptor* descriptor,
                                            QiroK7MSampleDescInfo* info) {
  return ApiCall([&] {
    Require(descriptor, info);
    *info = Impl(descriptor).GetInfo();
  });
}

QiroK7MError QiroK7MSampleDescriptorGetVideoInfo(QiroK7MSampleDescriptor* descriptor,
                                                 QiroK7MVideoSampleDescInfo* info) {
  return ApiCall([&] {
    Require(descriptor, info);
    Impl(descriptor).CopyRecord(info);
  });
}

QiroK7MError QiroK7MSampleDescriptorGetAudioInfo(QiroK7MSampleDescriptor* descriptor,
                                                 QiroK7MAudioSampleDescInfo* info) {
  return ApiCall([&] {
    Require(descriptor, info);
    Impl(descriptor).CopyRecord(info);
  });
}

QiroK7MError QiroK7MSampleDescriptorGetVorpInfo(QiroK7MSampleDescriptor* descriptor,
                                                QiroK7MVorpSampleDescInfo* info) {
  return ApiCall([&] {
    Require(descriptor, info);
    Impl(descriptor).CopyRecord(info);
  });
}

QiroK7MError QiroK7MSampleDescriptorCopyCodecHeaderData(QiroK7MSampleDescriptor* descriptor,
                                                        void* buffer) {
  return ApiCall([&] {
    Require(descriptor, buffer);
    Impl(descriptor).CopyCodecHeader(buffer);
  });
}
