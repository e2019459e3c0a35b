#include "api/new_sample.h"

namespace qiro::k7m::impl {

void CheckNewSample(const Track& track, const Sample& sample, const QiroK7MDataBuffer* data) {
  const QiroK7MSampleInfo& info = sample.GetInfo();
  ThrowIf(info.mediaType != track.GetMediaType(), kQiroK7MErrorMediaTypeMismatch);
  ThrowIf(info.sampleSize == 0 && !sample.IsGap(), kQiroK7MErrorEmptySample);
  if (!sample.IsGap()) {
    BytesOf(data, info.sampleSize);
  }
  ThrowIf(info.timeScale == 0, kQiroK7MErrorZeroTimeScale);
}

}  // namespace qiro::k7m::impl
