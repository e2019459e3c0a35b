#pragma once

#include "boxes/table_box.h"
#include "boxes/table_iterators.h"

namespace qiro::k7m::impl {

/// Chunk map ('stsc', ISO/IEC 14496-12 8.7.4), in 'stbl': which samples lie in which chunk.
class StscBox final : public TableBox {
 public:
  static constexpr uint32_t kType = FourCc("stsc");
  static constexpr uint32_t kEntrySize = 12;

  StscBox(QiroK7MStream* stream, const BoxHeader& header,
          const QiroK7MAllocatorCallBacks* allocator)
      : TableBox(stream, header, allocator), runs_(K7MAllocator<ChunkEntry>(allocator)) {}

  StscBox(QiroK7MStream* stream, uint32_t maxChunkCount, const QiroK7MAllocatorCallBacks* allocator)
      : TableBox(stream, kType, sizeof(uint32_t), kEntrySize, maxChunkCount, allocator),
        runs_(K7MAllocator<ChunkEntry>(allocator)) {}

  /// Deliberately one entry for each chunk: equal runs are not merged.
  void AddChunks(uint32_t firstChunk, uint32_t samplesPerChunk, uint32_t descriptionIndex);
  /// Deliberately lax: no limit on the count, and a box that holds fewer entries than it promises
  /// keeps the whole ones that are there. Error 23 for first chunks that do not start at 1 or
  /// decrease.
  void ReadExtensionPayloadData() override;
  void Describe(FieldSink& sink) override;

  /// From the first sample of the chunk that holds the given one.
  StscIterator FindBySampleNumber(uint32_t number) const;

 private:
  void TakeEntries(const uint8_t* bytes, uint64_t count);

  K7MVector<ChunkEntry> runs_;
  /// Runs up to and with the last one that has samples.
  size_t usedRuns_ = 0;
};

}  // namespace qiro::k7m::impl
