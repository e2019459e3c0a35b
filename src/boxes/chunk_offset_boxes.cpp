#include "boxes/chunk_offset_boxes.h"

#include <array>

#include "base/big_endian.h"
#include "boxes/entry_limit.h"
#include "boxes/payload_table.h"

namespace qiro::k7m::impl {

template <uint32_t kBoxType, class Offset>
ChunkOffsetBox<kBoxType, Offset>::ChunkOffsetBox(QiroK7MStream* stream, uint32_t maxChunkCount,
                                                 const QiroK7MAllocatorCallBacks* allocator)
    : TableBox(stream, kType, sizeof(uint32_t), kEntrySize, maxChunkCount, allocator),
      entries_(GetAllocator()) {
  ThrowIf(maxChunkCount > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
}

template <uint32_t kBoxType, class Offset>
void ChunkOffsetBox<kBoxType, Offset>::AddChunkOffset(Offset offset) {
  std::array<uint8_t, kEntrySize> bytes;
  StoreBigEndian(bytes.data(), offset);
  AppendEntry(bytes);
}

template <uint32_t kBoxType, class Offset>
void ChunkOffsetBox<kBoxType, Offset>::ReadExtensionPayloadData() {
  ThrowIf(!CanRead(sizeof(uint32_t)), kQiroK7MErrorBoxTruncated);
  const uint32_t count = Stream().ReadDWORD();
  ThrowIf(count > kMaxEntryCount, kQiroK7MErrorEntryCountTooLarge);
  ThrowIf(!CanRead(count * kEntrySize), kQiroK7MErrorBoxTruncated);
  ReadRecords(Stream(), entries_, count, kEntrySize,
              [](const uint8_t* bytes) { return LoadBigEndian<Offset>(bytes); });
}

template <uint32_t kBoxType, class Offset>
void ChunkOffsetBox<kBoxType, Offset>::Describe(FieldSink& sink) {
  DescribeTable(sink, "entries", entries_,
                [&sink](Offset offset) { sink.Number("chunk_offset", offset); });
}

template <uint32_t kBoxType, class Offset>
ChunkOffsetIterator ChunkOffsetBox<kBoxType, Offset>::FindByChunkNumber(uint32_t chunk) const {
  const bool isInTable = chunk >= 1 && chunk <= entries_.size();
  return ChunkOffsetIterator(isInTable ? entries_.begin() + chunk - 1 : entries_.end(),
                             entries_.end());
}

template class ChunkOffsetBox<FourCc("stco"), uint32_t>;
template class ChunkOffsetBox<FourCc("co64"), uint64_t>;

}  // namespace qiro::k7m::impl
