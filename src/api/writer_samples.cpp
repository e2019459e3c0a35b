#include "api/new_sample.h"

namespace impl = qiro::k7m::impl;
using impl::Impl;
using impl::Require;
using impl::RequireGood;
using impl::ThrowIf;
using impl::WriterCall;

QiroK7MError QiroK7MWriterAddSample(QiroK7MWriter* writer, QiroK7MTrack* track,
                                    const QiroK7MSampleInfo* info, QiroK7MDataBuffer* data) {
  const impl::AutoCleanupDataBuffer cleanup(data);
  return WriterCall(writer, [&] {
    Require(writer, track, info);
    RequireGood(writer);
    impl::Sample sample(*info, 0, nullptr, &Impl(track), nullptr);
    impl::CheckNewSample(Impl(track), sample, data);
    Impl(writer).AddSample(Impl(track).GetTrackId(), sample, data);
  });
}
