#pragma once

#include <memory>

#include "boxes/sample.h"

namespace qiro::k7m::impl {

/// A sequence of samples that is walked forwards once.
class SampleIterator {
 public:
  SampleIterator() = default;
  SampleIterator(const SampleIterator&) = delete;
  SampleIterator& operator=(const SampleIterator&) = delete;
  virtual ~SampleIterator() = default;

  virtual bool HasMoreEntries() = 0;
  /// None at the end.
  virtual std::unique_ptr<Sample> GetNextSample() = 0;
};

}  // namespace qiro::k7m::impl
