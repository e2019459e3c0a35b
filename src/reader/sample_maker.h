#pragma once

#include <memory>

#include "boxes/sample.h"
#include "boxes/track.h"

namespace qiro::k7m::impl {

/// Makes the samples of one track. What they have in common is looked up once, their descriptor
/// whenever the description changes.
class SampleMaker {
 public:
  SampleMaker(Track* track, SampleDataCache* cache);

  /// What is known about a sample from its place in a table or run.
  struct Record {
    uint32_t size;
    uint32_t compositionOffset;
    uint32_t flags;
    uint64_t dataOffset;
    uint32_t descriptionIndex;  ///< From 1.
  };
  /// The sample has no descriptor when the index names none.
  std::unique_ptr<Sample> Make(uint64_t timeStamp, const Record& record) {
    if (record.descriptionIndex != descriptionIndex_) {
      TakeDescriptor(record.descriptionIndex);
    }
    QiroK7MSampleInfo info = common_;
    info.timeStamp = timeStamp;
    info.sampleSize = record.size;
    info.compositionOffset = record.compositionOffset;
    info.flags = record.flags;
    return std::make_unique<Sample>(info, record.dataOffset, descriptor_, track_, cache_);
  }
  /// What an empty edit gives.
  std::unique_ptr<Sample> MakeGap(uint64_t timeStamp) const;

 private:
  void TakeDescriptor(uint32_t index);

  Track* track_;
  SampleDataCache* cache_;
  QiroK7MSampleInfo common_{};
  /// The descriptor that was looked up last. No track has one with index 0.
  uint32_t descriptionIndex_ = 0;
  SampleDescriptor* descriptor_ = nullptr;
};

}  // namespace qiro::k7m::impl
