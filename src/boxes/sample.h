#pragma once

#include <cstdint>

#include "base/data_cache.h"
#include "boxes/sample_descriptor.h"
#include "k7m/sample.h"

namespace qiro::k7m::impl {

class Track;

using SampleDataCache = DataCache<QiroK7MStream>;

/// One sample: its record and where its bytes lie. Lives on the ordinary heap. Everything it points
/// to belongs to the reader.
class Sample {
 public:
  /// A gap has neither descriptor nor cache.
  Sample(const QiroK7MSampleInfo& info, uint64_t dataOffset, SampleDescriptor* descriptor,
         Track* track, SampleDataCache* cache)
      : info_(info),
        dataOffset_(dataOffset),
        descriptor_(descriptor),
        track_(track),
        cache_(cache) {
    info_.size = sizeof(info_);
  }

  const QiroK7MSampleInfo& GetInfo() const { return info_; }
  QiroK7MSampleInfo& MutableInfo() { return info_; }
  void SetSampleDataOffset(uint64_t offset) { dataOffset_ = offset; }
  bool IsGap() const { return (info_.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagGap; }
  uint64_t GetSampleDataOffset() const { return dataOffset_; }
  uint32_t Getflags() const { return info_.flags; }
  bool IsKeySample() const {
    return (info_.flags & kQiroK7MSampleFlagKindMask) == kQiroK7MSampleFlagKey;
  }
  SampleDescriptor* GetSampleDescriptor() const { return descriptor_; }
  Track* GetTrack() const { return track_; }

  /// Error 1030 when the stream has fewer bytes. Reads nothing for size 0.
  void CopySampleData(void* buffer) const {
    if (info_.sampleSize != 0) {
      ThrowIf(cache_ == nullptr ||
                  cache_->Read(buffer, info_.sampleSize, dataOffset_) < info_.sampleSize,
              kQiroK7MErrorSampleDataShort);
    }
  }

 private:
  QiroK7MSampleInfo info_;
  uint64_t dataOffset_;
  SampleDescriptor* descriptor_;
  Track* track_;
  SampleDataCache* cache_;
};

}  // namespace qiro::k7m::impl
