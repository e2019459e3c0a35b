#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "boxes/table_entries.h"

namespace qiro::k7m::impl {

/// Walks the records of a table. One that was made without a table has no entries; so do all the
/// iterators below.
template <class Record>
class Iterator {
 public:
  Iterator() = default;
  Iterator(const Record* current, const Record* end) : current_(current), end_(end) {}

  bool HasMoreEntries() const { return current_ < end_; }
  Iterator& operator++() {
    ++current_;
    return *this;
  }
  /// Moves on by `count` records, at most to the end.
  void Advance(uint64_t count) {
    const auto left = static_cast<uint64_t>(end_ - current_);
    current_ += count < left ? count : left;
  }
  const Record& operator*() const { return *current_; }
  const Record* operator->() const { return current_; }

 private:
  const Record* current_ = nullptr;
  const Record* end_ = nullptr;
};

/// Walks runs of samples from an index in the first run to a limit in the end run. Runs without
/// samples are stepped over.
template <class Run>
class RunIterator {
 public:
  RunIterator() = default;
  /// `endRun` is the run in which the range ends: only its samples before `limit` belong to it.
  RunIterator(const Run* startRun, const Run* endRun, uint32_t startIndex, uint32_t limit)
      : run_(startRun), endRun_(endRun), index_(startIndex), limit_(limit) {
    available_ = AvailableInRun();
  }

  bool HasMoreEntries() const { return run_ < endRun_ || (run_ == endRun_ && index_ < available_); }

 protected:
  const Run& CurrentRun() const { return *run_; }
  const Run* EndRun() const { return endRun_; }
  uint32_t Index() const { return index_; }
  /// Moves to a sample of the current or a later run; to the next run when it has no such sample.
  void MoveTo(const Run* run, uint32_t index) {
    run_ = run;
    index_ = index;
    available_ = AvailableInRun();
    if (index_ >= available_) {
      EnterNextRun();
    }
  }
  /// Moves to the next sample; true when that one is in another run.
  bool Step() {
    ++index_;
    if (index_ < available_) {
      return false;
    }
    EnterNextRun();
    return true;
  }

 private:
  void EnterNextRun() {
    run_ += size_t{1} + run_->emptyBehind;
    index_ = 0;
    available_ = AvailableInRun();
  }
  uint32_t AvailableInRun() const {
    if (run_ < endRun_) {
      return run_->count;
    }
    return run_ == endRun_ ? limit_ : 0;
  }

  const Run* run_ = nullptr;
  const Run* endRun_ = nullptr;
  uint32_t index_ = 0;
  uint32_t limit_ = 0;
  uint32_t available_ = 0;
};

/// Decode times.
class SttsIterator : public RunIterator<CompactSttsEntry> {
 public:
  SttsIterator() = default;
  SttsIterator(const CompactSttsEntry* startRun, const CompactSttsEntry* endRun,
               uint32_t startIndex, uint32_t limit)
      : RunIterator(startRun, endRun, startIndex, limit) {
    TakeValue();
  }

  SttsIterator& operator++() {
    Next();
    return *this;
  }
  /// Moves to the next sample; false when there is none.
  bool Next() {
    if (Step()) {
      TakeValue();
      return HasMoreEntries();
    }
    value_.decodeTime += CurrentRun().delta;
    ++value_.sampleNumber;
    return true;
  }
  /// Moves on to the first sample at or after `time`, if the current one is before it.
  void SkipBefore(uint64_t time) {
    if (!HasMoreEntries() || value_.decodeTime >= time) {
      return;
    }
    const CompactSttsEntry* const run =
        std::partition_point(&CurrentRun() + 1, EndRun() + 1,
                             [time](const CompactSttsEntry& next) { return next.time < time; }) -
        1;
    MoveTo(run, run->CountBefore(time));
    TakeValue();
  }
  const SttsEntry& operator*() const { return value_; }
  const SttsEntry* operator->() const { return &value_; }
  /// Of the current sample.
  uint32_t GetDuration() const { return CurrentRun().delta; }

 private:
  void TakeValue() {
    if (HasMoreEntries()) {
      value_ = CurrentRun().Get(Index());
    }
  }

  SttsEntry value_;
};

/// Composition offsets.
class CttsIterator {
 public:
  CttsIterator() = default;
  /// From sample `number` on, which is at or behind the first sample of `run` and before the next
  /// run. `afterLast` is the number behind the last sample of the table.
  CttsIterator(const CompactCttsEntry* run, const CompactCttsEntry* end, uint32_t number,
               uint32_t afterLast)
      : next_(run + 1),
        end_(end),
        afterLast_(afterLast),
        value_(run->compositionOffset),
        left_(FirstOfNext() > number ? FirstOfNext() - number : 0) {}

  bool HasMoreEntries() const { return left_ != 0; }
  CttsIterator& operator++() {
    if (--left_ == 0 && next_ != end_) {
      EnterNextRun();
    }
    return *this;
  }
  uint32_t operator*() const { return value_; }
  const uint32_t* operator->() const { return &value_; }

 private:
  /// Runs without samples are stepped over at once.
  void EnterNextRun() {
    const uint32_t number = next_->firstSample;
    ++next_;
    if (FirstOfNext() == number) {
      next_ = std::partition_point(
          next_, end_, [number](const CompactCttsEntry& run) { return run.firstSample <= number; });
    }
    value_ = (next_ - 1)->compositionOffset;
    left_ = FirstOfNext() - number;
  }
  uint32_t FirstOfNext() const { return next_ == end_ ? afterLast_ : next_->firstSample; }

  const CompactCttsEntry* next_ = nullptr;
  const CompactCttsEntry* end_ = nullptr;
  uint32_t afterLast_ = 0;
  uint32_t value_ = 0;
  uint32_t left_ = 0;  ///< Samples of the current run from the current one on.
};

/// Chunk and description of each sample, from the first sample of a chunk on.
class StscIterator {
 public:
  StscIterator() = default;
  /// `run` has samples or is `end`; `chunkIndex` counts its chunks from 0.
  StscIterator(const ChunkEntry* run, const ChunkEntry* end, uint32_t chunkIndex)
      : run_(run), end_(end), chunkIndex_(chunkIndex) {
    if (HasMoreEntries()) {
      value_ = {run->firstSample + chunkIndex * run->samplesPerChunk, run->firstChunk + chunkIndex,
                run->descriptionIndex};
      nextChunkAt_ = value_.sampleNumber + run->samplesPerChunk;
    }
  }

  bool HasMoreEntries() const { return run_ < end_; }
  StscIterator& operator++() {
    Step();
    return *this;
  }
  /// Moves to the next sample; true when that one is in another chunk, or there is none.
  bool Step() {
    ++value_.sampleNumber;
    if (value_.sampleNumber != nextChunkAt_) {
      return false;
    }
    EnterNextChunk();
    return true;
  }
  /// Moves on by `count` samples, which must lie in the current chunk.
  void AdvanceInChunk(uint32_t count) { value_.sampleNumber += count; }
  const StscEntry& operator*() const { return value_; }
  const StscEntry* operator->() const { return &value_; }

 private:
  void EnterNextChunk() {
    ++value_.chunkNumber;
    if (++chunkIndex_ >= run_->chunkCount) {
      run_ += size_t{1} + run_->emptyBehind;
      chunkIndex_ = 0;
      if (!HasMoreEntries()) {
        return;
      }
      value_ = run_->Get(0);
    }
    nextChunkAt_ = value_.sampleNumber + run_->samplesPerChunk;
  }

  const ChunkEntry* run_ = nullptr;
  const ChunkEntry* end_ = nullptr;
  uint32_t chunkIndex_ = 0;
  uint32_t nextChunkAt_ = 0;  ///< Number of the first sample behind the current chunk.
  StscEntry value_;
};

/// Chunk offsets, from a table of either width.
class ChunkOffsetIterator {
 public:
  ChunkOffsetIterator() = default;
  template <class Offset>
  ChunkOffsetIterator(const Offset* current, const Offset* end)
      : current_(reinterpret_cast<const uint8_t*>(current)),
        left_(static_cast<uint64_t>(end - current)),
        width_(sizeof(Offset)) {}

  bool HasMoreEntries() const { return left_ != 0; }
  ChunkOffsetIterator& operator++() {
    Advance(1);
    return *this;
  }
  /// Moves on by `count` chunks, at most to the end.
  void Advance(uint64_t count) {
    const uint64_t moved = std::min(count, left_);
    current_ += moved * width_;
    left_ -= moved;
  }
  ChunkOffsetEntry operator*() const {
    return {width_ == sizeof(uint64_t) ? Load<uint64_t>() : Load<uint32_t>()};
  }

 private:
  template <class Offset>
  Offset Load() const {
    Offset offset;
    std::memcpy(&offset, current_, sizeof offset);
    return offset;
  }

  const uint8_t* current_ = nullptr;
  uint64_t left_ = 0;
  size_t width_ = 0;  ///< Bytes of an offset.
};

/// Sizes: from a table, or one size for every sample.
class SampleSizeIterator {
 public:
  SampleSizeIterator() = default;
  SampleSizeIterator(const SampleSizeEntry* current, const SampleSizeEntry* end)
      : current_(current), left_(static_cast<uint32_t>(end - current)) {}
  /// `size` outlives the iterator.
  SampleSizeIterator(const SampleSizeEntry* size, uint32_t count)
      : current_(size), left_(count), step_(0) {}

  bool IsConstantIter() const { return step_ == 0; }
  bool HasMoreEntries() const { return left_ != 0; }
  /// Only where there is an entry.
  SampleSizeIterator& operator++() {
    current_ += step_;
    --left_;
    return *this;
  }
  /// Moves on by `count` samples, at most to the end.
  void Advance(uint32_t count) {
    const uint32_t moved = std::min(count, left_);
    current_ += moved * step_;
    left_ -= moved;
  }
  const SampleSizeEntry& operator*() const { return *current_; }
  const SampleSizeEntry* operator->() const { return current_; }

 private:
  const SampleSizeEntry* current_ = nullptr;
  uint32_t left_ = 0;
  size_t step_ = 1;  ///< 0 where every sample has the same size.
};

}  // namespace qiro::k7m::impl
