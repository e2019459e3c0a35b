#pragma once

#include <cstdint>

#include "boxes/stbl_box.h"
#include "boxes/track.h"

namespace qiro::k7m::impl {

/// Walks the sample tables of a track in step: one small iterator a table, nothing expanded.
class SampleTableCursor {
 public:
  /// Error 12 when a required table is missing.
  explicit SampleTableCursor(const Track& track);

  /// Moves to the samples that `times` gives. False when there are none.
  bool Position(const SttsIterator& times);
  /// The search that Position() takes: decode times in [begin, end], both included.
  SttsIterator FindByDecodeTime(uint64_t begin, uint64_t end) const {
    return stts_->FindByDecodeTime(begin, end);
  }
  SttsIterator AllSamples() const { return stts_->AllSamples(); }

  bool HasMoreEntries() const { return isPositioned_; }
  void Next() {
    if (isKey_) {
      ++syncSamples_;
    }
    dataOffset_ += sizes_->size;
    isPositioned_ = times_.Next();
    if (!isPositioned_) {
      return;
    }
    ++sizes_;
    if (compositionOffsets_.HasMoreEntries()) {
      ++compositionOffsets_;
    }
    if (dependencies_.HasMoreEntries()) {
      ++dependencies_;
    }
    FindIfKey();
    const uint32_t previousChunk = chunks_->chunkNumber;
    const bool isChunkOver = chunks_.Step();
    if (!sizes_.HasMoreEntries() || (isChunkOver && !chunks_.HasMoreEntries())) {
      EndTrack();
    } else if (isChunkOver && chunks_->chunkNumber != previousChunk) {
      EnterChunk(previousChunk);
    }
  }
  /// No sample follows in this track, wherever it is positioned: a table ran out.
  bool IsTrackAtEnd() const { return isTrackAtEnd_; }

  uint64_t DecodeTime() const { return times_->decodeTime; }
  uint32_t Size() const { return sizes_->size; }
  uint64_t DataOffset() const { return dataOffset_; }
  /// 0 where the table has none.
  uint32_t CompositionOffset() const {
    return compositionOffsets_.HasMoreEntries() ? *compositionOffsets_ : 0;
  }
  bool IsKey() const { return isKey_; }
  uint8_t Dependency() const { return dependencies_.HasMoreEntries() ? *dependencies_ : 0; }
  uint32_t DescriptionIndex() const { return chunks_->descriptionIndex; }

 private:
  bool PositionInChunk(uint32_t sampleNumber);
  /// Moves to the chunk that the chunk map names; the samples end when it has no offset.
  void EnterChunk(uint32_t previousChunk) {
    // Runs without samples were stepped over: their chunks have offsets all the same.
    chunkOffsets_.Advance(chunks_->chunkNumber - previousChunk);
    isPositioned_ = chunkOffsets_.HasMoreEntries();
    if (isPositioned_) {
      dataOffset_ = (*chunkOffsets_).offset;
    }
  }
  void FindIfKey() {
    isKey_ = syncSamples_.HasMoreEntries() && syncSamples_->sampleNumber == times_->sampleNumber;
  }
  void EndTrack();

  const SttsBox* stts_;
  const StscBox* stsc_;
  const StszBox* stsz_;
  const IChunkOffsetBox* chunkOffsetBox_;
  const CttsBox* ctts_;
  const StssBox* stss_;
  const SdtpBox* sdtp_;

  SttsIterator times_;
  SampleSizeIterator sizes_;
  StscIterator chunks_;
  ChunkOffsetIterator chunkOffsets_;
  CttsIterator compositionOffsets_;
  Iterator<SyncSampleEntry> syncSamples_;
  Iterator<uint8_t> dependencies_;
  uint64_t dataOffset_ = 0;
  bool isKey_ = false;
  bool isPositioned_ = false;
  bool isTrackAtEnd_ = false;
};

}  // namespace qiro::k7m::impl
