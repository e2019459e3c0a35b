#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "base/data_cursor.h"
#include "base/stream.h"

namespace qiro::k7m::impl {

/// A cache of blocks over a stream, for sample data. Offsets below its base are not readable.
template <class Stream>
class DataCache {
 public:
  DataCache(Stream* stream, uint64_t baseOffset, uint32_t slotCount, uint32_t blockSize)
      : slots_(slotCount),
        baseOffset_(baseOffset),
        blockSize_(blockSize),
        slotCount_(slotCount),
        stream_(stream),
        ages_(slotCount, 0) {}

  /// Offsets below `baseOffset` are refused from now on, and blocks are counted from it.
  void SetBaseOffset(uint64_t baseOffset) { baseOffset_ = baseOffset; }

  /// Copies `length` bytes at `offset` of the stream into `buffer`; returns how many could be had.
  /// Each byte counts once, also when it was delivered from a block and again by the direct read.
  uint64_t Read(void* buffer, uint64_t length, uint64_t offset) {
    if (length == 0 || offset < baseOffset_ || offset > kMaxStreamOffset) {
      return 0;
    }
    Request rest{static_cast<uint8_t*>(buffer), length, offset};
    if (length <= blockSize_) {
      CopyFromLoadedBlocks(rest);
      if (rest.length > 0) {
        LoadAndCopy(rest);
      }
    }
    if (rest.length == 0) {
      return length;
    }
    stream_->SeekTo(offset);
    const uint64_t direct = stream_->ReadSome(buffer, length);
    return std::max(direct, length - rest.length);
  }

  uint32_t AgeOf(uint32_t slot) const { return ages_[slot]; }

 private:
  struct Request {
    uint8_t* buffer;
    uint64_t length;
    uint64_t offset;
  };
  struct Slot {
    std::unique_ptr<uint8_t[]> bytes;
    StreamedData block;
  };

  /// Returns whether the block holds the start of the request.
  static bool CopyOverlap(const StreamedData& block, Request& rest) {
    if (rest.offset < block.Offset() || rest.offset - block.Offset() >= block.Length()) {
      return false;
    }
    const uint64_t start = rest.offset - block.Offset();
    const uint64_t count = std::min(rest.length, block.Length() - start);
    std::memcpy(rest.buffer, block.Current() + start, count);
    rest = {rest.buffer + count, rest.length - count, rest.offset + count};
    return count > 0;
  }

  void CopyFromLoadedBlocks(Request& rest) {
    for (uint32_t slot = 0; slot < loadedCount_; ++slot) {
      const bool delivered = CopyOverlap(slots_[slot].block, rest);
      // Deliberately an AND: every age stays 0, so the block replaced is always the one in slot 0.
      ages_[slot] = (ages_[slot] >> 1) & (delivered ? 0x80000000U : 0U);
      if (delivered) {
        break;
      }
    }
  }

  void LoadAndCopy(Request& rest) {
    Slot& slot = SlotToFill();
    const uint64_t start =
        baseOffset_ + (rest.offset - baseOffset_) / blockSize_ * uint64_t{blockSize_};
    slot.block = StreamedData();
    stream_->SeekTo(start);
    const uint64_t count = stream_->ReadSome(slot.bytes.get(), blockSize_);
    slot.block = StreamedData(slot.bytes.get(), count, start);
    CopyOverlap(slot.block, rest);
  }

  Slot& SlotToFill() {
    if (loadedCount_ < slotCount_) {
      Slot& slot = slots_[loadedCount_];
      slot.bytes.reset(new uint8_t[blockSize_]);
      ++loadedCount_;
      return slot;
    }
    return slots_[ages_[0]];
  }

  std::vector<Slot> slots_;
  uint64_t baseOffset_;
  uint32_t blockSize_;
  uint32_t loadedCount_ = 0;
  uint32_t slotCount_;
  Stream* stream_;
  std::vector<uint32_t> ages_;
};

}  // namespace qiro::k7m::impl
