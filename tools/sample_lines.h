/// @file sample_lines.h
/// One line for a sample, as a table, as comma-separated values or as JSON. Nothing is gathered: a
/// list of any length takes the same memory.
#pragma once

#include <cstdint>

#include "media_time.h"
#include "output.h"

namespace qiro::k7m::tool {

struct SampleFacts {
  uint32_t track = 0;
  MediaTime time;  ///< Decode time.
  int32_t compositionOffset = 0;
  uint32_t size = 0;
  bool isKey = false;
  bool isGap = false;
  uint32_t description = 0;  ///< From 1 in the track; 0: the sample has none.
  uint32_t dependency = 0;   ///< The byte of the 'sdtp' table.
};

enum class SampleForm { kTable, kCsv, kJson };

/// Writes the head of the list when it is made and the end when it is destroyed, also when a
/// failure ends the list early.
class SampleLines {
 public:
  SampleLines(SampleForm form, Output& out);
  ~SampleLines();
  SampleLines(const SampleLines&) = delete;
  SampleLines& operator=(const SampleLines&) = delete;

  void Add(const SampleFacts& facts);

 private:
  SampleForm form_;
  Output& out_;
  bool isFirst_ = true;
};

}  // namespace qiro::k7m::tool
