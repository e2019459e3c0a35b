#pragma once

#include "base/record_table.h"
#include "boxes/table_box.h"
#include "boxes/table_iterators.h"

namespace qiro::k7m::impl {

/// Where chunk offsets are looked up, whatever their width in the file.
class IChunkOffsetBox {
 public:
  virtual ~IChunkOffsetBox() = default;

  /// From the given chunk, counted from 1, on; no entries outside the table.
  virtual ChunkOffsetIterator FindByChunkNumber(uint32_t chunk) const = 0;
};

/// Chunk offsets (ISO/IEC 14496-12 8.7.5), in 'stbl'. `Offset` is their type in the file.
template <uint32_t kBoxType, class Offset>
class ChunkOffsetBox final : public TableBox, public IChunkOffsetBox {
 public:
  static constexpr uint32_t kType = kBoxType;
  static constexpr uint64_t kEntrySize = sizeof(Offset);

  ChunkOffsetBox(QiroK7MStream* stream, const BoxHeader& header,
                 const QiroK7MAllocatorCallBacks* allocator)
      : TableBox(stream, header, allocator), entries_(GetAllocator()) {}
  /// Error 31 above 100000000 chunks.
  ChunkOffsetBox(QiroK7MStream* stream, uint32_t maxChunkCount,
                 const QiroK7MAllocatorCallBacks* allocator);

  void AddChunkOffset(Offset offset);

  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  ChunkOffsetIterator FindByChunkNumber(uint32_t chunk) const override;

 private:
  RecordTable<Offset> entries_;
};

using StcoBox = ChunkOffsetBox<FourCc("stco"), uint32_t>;
using Co64Box = ChunkOffsetBox<FourCc("co64"), uint64_t>;

extern template class ChunkOffsetBox<FourCc("stco"), uint32_t>;
extern template class ChunkOffsetBox<FourCc("co64"), uint64_t>;

}  // namespace qiro::k7m::impl
