#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/opened_stream.h"

namespace qiro::k7m::impl {

/// The widths and the number of entries of an index, as they stand in it at the moment.
struct IndexLayout {
  uint64_t idSize = 0;      ///< Of segment and fragment numbers: 2 or 4 bytes.
  uint64_t offsetSize = 0;  ///< 4 or 8 bytes.
  bool hasGlobalEntries = false;
  uint32_t localEntryCount = 0;
};

/// The index of a fragment file: a stream that is one 'afra' box. Nothing of it is kept; every
/// question reads the few bytes that answer it.
class FragmentIndex {
 public:
  /// Opens the stream. Error 1026 unless it is exactly one 'afra' box, large enough for an empty
  /// one.
  explicit FragmentIndex(std::unique_ptr<QiroK7MStream> stream);

  IndexLayout ReadLayout();
  /// The offset in the local entry of a fragment, from 1. Error 1024 when there is none, error 26
  /// when the entry says that the fragment is not available.
  uint64_t FindLocal(const IndexLayout& layout, uint32_t fragmentNumber);
  /// The offset in the global entry of a fragment; none when the entry in its place is that of
  /// another fragment or segment. Entries are taken to number consecutive fragments, deliberately
  /// without a search, and their count matters only when it is 0. Error 1024 or 26 as above.
  std::optional<uint64_t> FindGlobal(const IndexLayout& layout, uint32_t fragmentNumber,
                                     uint32_t segmentNumber);

 private:
  struct GlobalEntry {
    uint64_t segmentNumber;
    uint64_t fragmentNumber;
    uint64_t afraOffset;
  };

  GlobalEntry ReadGlobalEntry(const IndexLayout& layout, uint64_t index);
  /// Error 5 when the index ends before.
  void ReadAt(uint64_t position, uint8_t* bytes, uint64_t size);

  OpenedStream stream_;
  uint64_t fieldsBegin_ = 0;  ///< Behind version and flags of the box.
};

}  // namespace qiro::k7m::impl
