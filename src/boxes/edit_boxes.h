#pragma once

#include "boxes/full_box.h"

namespace qiro::k7m::impl {

/// A part of the presentation timeline and the media that it shows.
struct K7MEditListEntry {
  static constexpr int64_t kEmptyEdit = -1;

  uint64_t segmentDuration = 0;  ///< Movie time scale.
  int64_t mediaTime = 0;         ///< Track time scale; -1: an empty edit, a gap.
  int16_t mediaRateInteger = 0;
  int16_t mediaRateFraction = 0;
  uint64_t startTime = 0;  ///< Sum of the earlier entries' durations; not in the file.

  bool IsGap() const { return mediaTime == kEmptyEdit; }
  bool HasZeroRate() const { return mediaRateInteger == 0 && mediaRateFraction == 0; }
};

/// The order in which the list is searched by time.
inline bool CompareElstEntry(const K7MEditListEntry& a, const K7MEditListEntry& b) {
  return a.startTime <= b.startTime;
}

/// Walks a range of edits.
class ElstIterator {
 public:
  ElstIterator() = default;
  ElstIterator(const K7MEditListEntry* current, const K7MEditListEntry* end)
      : current_(current), end_(end) {}

  bool HasMoreEntries() const { return current_ != end_; }
  ElstIterator& operator++() {
    ++current_;
    return *this;
  }
  const K7MEditListEntry& operator*() const { return *current_; }
  const K7MEditListEntry* operator->() const { return current_; }

 private:
  const K7MEditListEntry* current_ = nullptr;
  const K7MEditListEntry* end_ = nullptr;
};

/// Edit list ('elst', ISO/IEC 14496-12 8.6.6), in 'edts'. Irregular: the layout of an entry depends
/// on the version, and the room for entries is fixed by the box's size.
class ElstBox final : public FullBox {
 public:
  static constexpr uint32_t kType = FourCc("elst");
  static constexpr uint64_t kPayloadSizeV0 = 12;
  static constexpr uint64_t kPayloadSizeV1 = 20;

  /// Takes the capacity from the room in the box. Warning 3073, and capacity 0, when that is not a
  /// multiple of 4.
  ElstBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator);
  /// Room for 2 `reserveCount` + 1 entries. Error 9 when that is above 100000000.
  ElstBox(QiroK7MStream* stream, uint8_t version, uint32_t reserveCount,
          const QiroK7MAllocatorCallBacks* allocator);

  void ReadExtensionPayloadData() override;
  /// Writes the entries, and zeros over the rest of the reserved space.
  void WriteExtensionBox() override;
  void UpdateExtensionBox() override { WriteExtensionBox(); }
  void Describe(FieldSink& sink) override;

  /// Error 16 when there is no room. Any `rate` but 0 becomes 1.
  void AddElstEntry(uint64_t segmentDuration, int64_t mediaTime, uint32_t rate);
  /// Sets the duration of the last entry; does nothing without one.
  void UpdateLastElstEntry(uint64_t segmentDuration);
  /// Does nothing without an entry.
  void DeleteLastElstEntry();

  const K7MVector<K7MEditListEntry>& GetEntries() const { return entries_; }
  /// How many entries the box has room for.
  uint64_t GetCapacity() const { return capacity_; }
  uint64_t GetGapsDuration() const;
  uint32_t GetGapsCount() const;
  /// 0 when there is no entry.
  int64_t GetLastEntryMediaTime() const;
  /// Sum of the durations of all entries but the last.
  uint64_t GetLastSegStartTime() const;
  /// The entries that cover [begin, end] in movie time: from the last one that starts at or before
  /// `begin` to the last one that starts at or before `end`.
  ElstIterator GetElstIterator(uint64_t begin, uint64_t end) const;

 private:
  uint64_t EntrySize() const { return GetVersion() == 1 ? kPayloadSizeV1 : kPayloadSizeV0; }

  K7MVector<K7MEditListEntry> entries_;
  uint64_t capacity_ = 0;
};

/// Edits ('edts', ISO/IEC 14496-12 8.6.5), in 'trak': holds the edit list.
class EdtsBox final : public Box {
 public:
  static constexpr uint32_t kType = FourCc("edts");

  using Box::Box;
  EdtsBox(QiroK7MStream* stream, uint32_t reserveCount, const QiroK7MAllocatorCallBacks* allocator);

  void AddChildBox(std::unique_ptr<Box> child) override;
  /// Null when there is none.
  ElstBox* GetElstBox() const { return elst_; }

 private:
  ElstBox* elst_ = nullptr;
};

}  // namespace qiro::k7m::impl
