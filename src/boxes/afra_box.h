#pragma once

#include "boxes/full_box.h"

namespace qiro::k7m::impl {

/// A sample at which playing a fragment can start.
struct AfraEntry {
  uint64_t time;    ///< In the box's time scale.
  uint64_t offset;  ///< From the begin of the box.
};

/// Fragment random access ('afra'), at the top level, in front of each fragment. Written only: one
/// met in a file is a plain box. Irregular: a table of entries that grows until the box is written.
class AfraBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("afra");

  AfraBox(QiroK7MStream* stream, uint8_t version, uint32_t timeScale,
          const QiroK7MAllocatorCallBacks* allocator);

  void AddEntry(uint64_t time, uint64_t offset);
  /// Adds to the offset of every entry.
  void IncrementSamplesOffset(uint64_t delta);
  /// The header in one piece behind everything else: whoever finds it finds the entries too, also
  /// when writing was interrupted.
  void WriteBox() override;
  void WriteBoxHeader() override;
  void WriteExtensionBox() override;
  /// Rewrites the number of entries and the entries.
  void UpdateExtensionBox() override;
  void AccountForPayload() override;

  uint32_t GetTimeScale() const { return timeScale_; }
  const K7MVector<AfraEntry>& GetEntries() const { return entries_; }

 private:
  uint32_t timeScale_;
  K7MVector<AfraEntry> entries_;
};

}  // namespace qiro::k7m::impl
