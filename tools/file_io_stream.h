/// @file file_io_stream.h
/// A file as the stream that the library writes to.
#pragma once

#include <k7m/k7m.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace qiro::k7m::tool {

/// A file open for reading and writing, seen through a small set of blocks in memory. A document is
/// written in many places at once: every table of every track grows in the space reserved for it
/// while the media data grows behind them. Each such place finds its block again, so that the
/// system sees large writes only.
class FileIoStream {
 public:
  /// What the callbacks return, and the library passes on, when the system failed; ErrorNumber()
  /// tells why.
  static constexpr QiroK7MError kSystemFailed = 0x5359534F;

  /// When what is written gets into the file.
  enum class Order : uint8_t {
    kAny,   ///< At the end, and before that as room is needed.
    kKept,  ///< Before anything that does not follow it directly, so that who is stopped half way
            ///< leaves what a slower writer would have left.
  };

  /// @param descriptor  open for reading and writing; stays the caller's
  /// @param length      bytes in the file
  explicit FileIoStream(int descriptor, uint64_t length = 0, Order order = Order::kAny)
      : descriptor_(descriptor), order_(order), length_(length), fileLength_(length) {}
  FileIoStream(const FileIoStream&) = delete;
  FileIoStream& operator=(const FileIoStream&) = delete;

  /// The record to create a document with. This object must outlive the document. Everything is in
  /// the file once `close` has succeeded, and not before.
  QiroK7MIOStreamCallBacks CallBacks();
  /// The errno value of the operation that failed; 0 while none did.
  int ErrorNumber() const { return errorNumber_; }
  /// Calls of the system that have moved bytes so far.
  uint64_t SystemCallCount() const { return systemCallCount_; }

 private:
  // Offsets within a block.
  struct Range {
    uint64_t begin = 0;
    uint64_t end = 0;

    bool IsEmpty() const { return begin == end; }
    bool Holds(const Range& other) const { return begin <= other.begin && other.end <= end; }
    // Without a hole in between.
    bool Touches(const Range& other) const { return begin <= other.end && other.begin <= end; }
    void Add(const Range& other);
  };
  // A piece of the file of kBlockSize bytes, at a multiple of that.
  struct Block {
    uint64_t number = 0;
    uint64_t lastUse = 0;
    Range known;  // What is right in `bytes`.
    Range dirty;  // What the file does not have yet: a part of `known`.
    std::unique_ptr<uint8_t[]> bytes;
  };

  QiroK7MError Read(uint8_t* target, uint64_t byteCount, uint64_t* bytesRead);
  QiroK7MError Write(const uint8_t* source, uint64_t byteCount, uint64_t* bytesWritten);
  QiroK7MError Seek(int64_t offset, QiroK7MSeekPos origin);
  QiroK7MError Truncate(uint64_t length);
  QiroK7MError FlushAll();

  // Whole blocks from the position on that are not in memory, at most `limit`.
  uint64_t CountWholeBlocksToPass(uint64_t limit);
  Block* Find(uint64_t number);
  // The block, of which maybe nothing is known. Null when the system failed.
  Block* Fetch(uint64_t number);
  // A block to be used anew. Null when the system failed.
  Block* TakeOldest();
  // Fills the block with what the file has of it.
  bool Complete(Block* block);
  bool WriteInto(Block* block, const uint8_t* source, const Range& place);
  bool Flush(Block* block);
  bool ReadFile(uint8_t* target, uint64_t byteCount, uint64_t position);
  bool WriteFile(const uint8_t* source, uint64_t byteCount, uint64_t position);
  void Advance(uint64_t byteCount);
  QiroK7MError Fail(int errorNumber);

  int descriptor_;
  Order order_;
  uint64_t position_ = 0;
  uint64_t lastWriteEnd_ = 0;
  uint64_t length_;       // Of the stream.
  uint64_t fileLength_;   // Of the file: shorter while blocks at the end are only in memory.
  size_t lastFound_ = 0;  // Index of a block.
  uint64_t useCount_ = 0;
  uint64_t doneCount_ = 0;
  uint64_t systemCallCount_ = 0;
  std::vector<Block> blocks_;
  int errorNumber_ = 0;
};

}  // namespace qiro::k7m::tool
