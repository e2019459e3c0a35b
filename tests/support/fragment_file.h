/// @file fragment_file.h
/// K7R files and their indexes, byte by byte.
#ifndef K7M_TESTS_SUPPORT_FRAGMENT_FILE_H
#define K7M_TESTS_SUPPORT_FRAGMENT_FILE_H

#include <functional>
#include <vector>

#include "box_records.h"

namespace k7mtest {

/// The payload of an 'afra' in every layout, of a fragment or as an index. The flags byte follows
/// from the widths and the global entries unless it is given; so do the counts.
struct Afra {
  struct Local {
    uint64_t time = 0;
    uint64_t offset = 0;
  };
  struct Global {
    uint64_t time = 0;
    uint32_t segment = 1;
    uint32_t fragment = 1;
    uint64_t afraOffset = 0;
    uint64_t offsetFromAfra = 0;
  };
  bool hasLongIds = true;
  bool hasLongOffsets = true;
  uint32_t timeScale = 1000;
  std::vector<Local> locals = {};
  std::vector<Global> globals = {};
  bool hasGlobalPart = false;  // Otherwise only when there are global entries.
  uint8_t reservedBits = 0;
  Count localCount = {};
  Count globalCount = {};
  Bytes Payload() const;
};

inline Bytes AfraBox(const Afra& afra) { return FullBox("afra", 0, 0, afra); }

/// What one fragment is made of.
struct TestFragment {
  std::vector<Bytes> samples = {Pattern(20)};
  Afra afra = {};
  Bytes bootstrap = {};       // A whole box behind the 'afra'; none when empty.
  bool isMdatFirst = false;   // 'mdat' before 'moof'.
  bool hasLargeMdat = false;  // 'mdat' in the 64-bit size form.
  Bytes before = {};          // Boxes in front of the fragment, no part of it.
};

struct FragmentFile {
  Bytes bytes;
  std::vector<uint64_t> offsets;  // Of the fragments.
  std::vector<Bytes> fragments;
};

/// 'ftyp' and a 'moov' with one video track (time scale 1000) and its 'mvex'.
Bytes FragmentedMovieHead();
/// A 'moof' of that track; its data starts at `dataOffset` of the file, 10 time units a sample.
Bytes Moof(uint32_t sequenceNumber, const std::vector<Bytes>& samples, uint64_t dataOffset);
/// A whole file.
FragmentFile BuildFragmentFile(const std::vector<TestFragment>& fragments, const Bytes& atEnd = {});
/// The same with `count` fragments that all differ.
FragmentFile SomeFragments(size_t count);

/// The index with one local entry for each fragment of the file. Of `layout` it takes the widths
/// and the reserved bits.
Bytes LocalIndex(const FragmentFile& file, Afra layout = {});
/// The index with one global entry for each fragment, numbered from `firstFragment` on, all in one
/// segment.
Bytes GlobalIndex(const FragmentFile& file, Afra layout = {}, uint32_t firstFragment = 1,
                  uint32_t segment = 1);

}  // namespace k7mtest

#endif
