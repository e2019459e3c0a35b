#pragma once

#include <span>

#include "boxes/full_box.h"

namespace qiro::k7m::impl {

/// Base of the sample tables. In the writing form a table holds no entries in memory: the box is
/// sized for the most it may get, each entry goes straight to the stream behind the others, and
/// only the number of entries is kept, to be written into the fixed part later. The effective size
/// ends behind the last entry, the total size behind the reserved space.
class TableBox : public FullBox {
 public:
  TableBox(QiroK7MStream* stream, const BoxHeader& header,
           const QiroK7MAllocatorCallBacks* allocator)
      : FullBox(stream, header, allocator) {}

  /// How far the entries have got, in the writing form.
  struct Progress {
    uint64_t effectiveSize;
    uint32_t writtenCount;
  };
  Progress GetProgress() const { return {GetEffectiveSize(), writtenCount_}; }
  /// Forgets the entries that were added since.
  void ReturnTo(const Progress& progress) {
    SetEffectiveSize(progress.effectiveSize);
    writtenCount_ = progress.writtenCount;
  }

  /// Rewrites the number of entries.
  void UpdateExtensionBox() override { WriteCount(writtenCount_); }
  void WriteExtensionBox() override { UpdateExtensionBox(); }

 protected:
  /// `fixedSize` bytes, of which the last 4 are the number of entries, stand before the entries.
  TableBox(QiroK7MStream* stream, uint32_t type, uint32_t fixedSize, uint64_t entrySize,
           uint32_t maxEntryCount, const QiroK7MAllocatorCallBacks* allocator);

  /// Writes an entry behind the others and counts it. Error 17 when the reserved space is used up.
  void AppendEntry(std::span<const uint8_t> entry);
  /// Writes entries behind the others without counting them: later ones take their place.
  void WriteProvisionally(std::span<const uint8_t> entries);
  void WriteCount(uint32_t count);
  uint32_t GetWrittenCount() const { return writtenCount_; }

 private:
  void WriteBehindEntries(std::span<const uint8_t> bytes);

  uint64_t countOffset_ = 0;
  uint32_t writtenCount_ = 0;
};

}  // namespace qiro::k7m::impl
