#include "reader/sample_table_cursor.h"

namespace qiro::k7m::impl {

SampleTableCursor::SampleTableCursor(const Track& track)
    : stts_(track.GetTrakBox()->GetSttsBox()),
      stsc_(track.GetTrakBox()->GetStscBox()),
      stsz_(track.GetTrakBox()->GetStszBox()),
      chunkOffsetBox_(track.GetTrakBox()->GetChunkOffBox()),
      ctts_(track.GetTrakBox()->GetCttsBox()),
      stss_(track.GetTrakBox()->GetStssBox()),
      sdtp_(track.GetTrakBox()->GetSdtpBox()) {
  ThrowIf(stts_ == nullptr || stsc_ == nullptr || stsz_ == nullptr || chunkOffsetBox_ == nullptr,
          kQiroK7MErrorIncompleteSampleTable);
}

bool SampleTableCursor::Position(const SttsIterator& times) {
  times_ = times;
  isPositioned_ = times_.HasMoreEntries();
  if (!isPositioned_) {
    return false;
  }
  const uint32_t sampleNumber = times_->sampleNumber;
  if (!PositionInChunk(sampleNumber)) {
    EndTrack();
    return false;
  }
  compositionOffsets_ = ctts_ == nullptr ? CttsIterator() : ctts_->FindBySampleNumber(sampleNumber);
  syncSamples_ =
      stss_ == nullptr ? Iterator<SyncSampleEntry>() : stss_->FindBySampleNumber(sampleNumber);
  FindIfKey();
  dependencies_ = sdtp_ == nullptr ? Iterator<uint8_t>() : sdtp_->FindBySampleNumber(sampleNumber);
  return true;
}

bool SampleTableCursor::PositionInChunk(uint32_t sampleNumber) {
  chunks_ = stsc_->FindBySampleNumber(sampleNumber);
  if (!chunks_.HasMoreEntries()) {
    return false;
  }
  chunkOffsets_ = chunkOffsetBox_->FindByChunkNumber(chunks_->chunkNumber);
  if (!chunkOffsets_.HasMoreEntries()) {
    return false;
  }
  const uint32_t firstInChunk = chunks_->sampleNumber;
  const uint32_t before = sampleNumber - firstInChunk;
  sizes_ = stsz_->FindBySampleNumber(firstInChunk);
  sizes_.Advance(before);
  if (!sizes_.HasMoreEntries()) {
    return false;
  }
  chunks_.AdvanceInChunk(before);
  dataOffset_ = (*chunkOffsets_).offset + stsz_->SizeOfSamples(firstInChunk, before);
  return true;
}

void SampleTableCursor::EndTrack() {
  isPositioned_ = false;
  isTrackAtEnd_ = true;
}

}  // namespace qiro::k7m::impl
