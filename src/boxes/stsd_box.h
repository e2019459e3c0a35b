#pragma once

#include "boxes/sample_entries.h"
#include "boxes/variable_size_box.h"

namespace qiro::k7m::impl {

/// Sample descriptions ('stsd', ISO/IEC 14496-12 8.5.2), in 'stbl'. Irregular: the class of an
/// entry depends on the track's media type, which is known only when the whole 'mdia' was read.
class StsdBox final : public VariableSizeBox {
 public:
  static constexpr uint32_t kType = FourCc("stsd");

  StsdBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator);

  /// Reserves space for the entries that `entries` announces: for each the longest codec header and
  /// the fixed part of an entry of the media type. For 'hint' that is deliberately 16 bytes, 6
  /// fewer than a 'vorp' entry needs.
  StsdBox(QiroK7MStream* stream, uint32_t mediaType, const QiroK7MTrackEntriesInfo& entries,
          const QiroK7MAllocatorCallBacks* allocator);

  /// Takes the descriptor into an entry of its own. Error 15 when the entry does not fit the
  /// reserved space, 1542 when a 'vorp' would not be the only one.
  SampleDescriptor* AddSampleDescriptor(std::unique_ptr<SampleDescriptor> descriptor);
  /// Writes the entry that was added last, and the rest of the reserved space behind it.
  void WriteLastEntry();
  /// Makes the room behind the entries of a box that was read reserved space.
  void UpdateSTSDBoxListForAppend();
  void WriteExtensionBox() override;
  void UpdateExtensionBox() override;
  /// From now on reading the payload reads the entries too.
  void SetMediaType(uint32_t mediaType);
  void ReadExtensionPayloadData() override;
  /// The entries read themselves.
  void CompleteReadChildBoxes(RootBox*, bool) override {}
  void Describe(FieldSink& sink) override;

  uint32_t GetEntryCount() const { return entryCount_; }
  /// `index` from 1; null for 0 and above the entry count.
  K7MSampleEntry* GetSampleEntry(uint32_t index) const;
  /// 0 without entries.
  uint32_t GetMaxCodecHeaderDataLen() const;

 private:
  void ReadEntries();
  std::unique_ptr<K7MSampleEntry> MakeEntry(const BoxHeader& header);
  std::unique_ptr<K7MSampleEntry> MakeEntry(std::unique_ptr<SampleDescriptor> descriptor);

  uint32_t entryCount_ = 0;
  bool isMediaTypeSet_ = false;
  uint32_t mediaType_ = 0;
  K7MVector<K7MSampleEntry*> entries_;
  uint32_t reservedByteCount_ = 0;
};

}  // namespace qiro::k7m::impl
