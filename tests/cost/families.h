/// @file families.h
/// Bad files of every kind, of any size.
#ifndef K7M_TESTS_COST_FAMILIES_H
#define K7M_TESTS_COST_FAMILIES_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace k7mtest {

struct BadFile {
  std::string name;
  Bytes bytes;
  /// The chunk map's buffer is asked for in the size that the count says (in 32 bits), and not
  /// touched beyond what arrives.
  uint64_t untouchedMemory = 0;
};

/// Files that are bad in the same way. Of twice the size, each is twice as long and has twice as
/// many of what makes it bad.
struct Family {
  const char* name;
  std::vector<BadFile> (*make)(uint32_t size);
};

std::vector<Family> AllFamilies();

std::vector<BadFile> LyingCounts(uint32_t size);
std::vector<BadFile> AllOnes(uint32_t size);
std::vector<BadFile> NestedBoxes(uint32_t size);
std::vector<BadFile> TinyBoxes(uint32_t size);
std::vector<BadFile> WrongSizes(uint32_t size);
std::vector<BadFile> RepeatedBoxes(uint32_t size);
std::vector<BadFile> MisplacedBoxes(uint32_t size);
std::vector<BadFile> DescriptionsOutOfRange(uint32_t size);
std::vector<BadFile> ChunkMaps(uint32_t size);
std::vector<BadFile> ExtremeEdits(uint32_t size);
std::vector<BadFile> ExtremeTimes(uint32_t size);
std::vector<BadFile> ExtremeScales(uint32_t size);
std::vector<BadFile> BadFragments(uint32_t size);
std::vector<BadFile> BadRecordings(uint32_t size);
std::vector<BadFile> BadIndexes(uint32_t size);

}  // namespace k7mtest

#endif
