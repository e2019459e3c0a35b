/// @file file_stream.h
/// An input as the stream that the library reads from.
#pragma once

#include <k7m/k7m.h>
#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "failure.h"
#include "input_source.h"

namespace qiro::k7m::tool {

/// An input open for reading with a position of its own, so that seeking and telling cost nothing.
/// The blocks read last stay in memory: tracks that lie side by side are often read one stretch
/// after the other.
class FileStream {
 public:
  /// What the callbacks return, and the library passes on, when the input failed;
  /// WhatFailed() tells why.
  static constexpr QiroK7MError kSystemFailed = 0x5359534D;

  /// Opens the file; throws a Failure with the system's message when it cannot be read and sought.
  explicit FileStream(const std::string& path);
  /// A stream over an input, which others may be over as well. Throws when it cannot be measured.
  explicit FileStream(std::shared_ptr<InputSource> source);
  ~FileStream() = default;
  FileStream(const FileStream&) = delete;
  FileStream& operator=(const FileStream&) = delete;

  /// The record to open a document with. This object must outlive the document.
  QiroK7MIStreamCallBacks CallBacks();

  /// What the bytes come from.
  const std::shared_ptr<InputSource>& Source() const { return source_; }
  /// The path of a file, or what else the input is called in messages.
  const std::string& Path() const { return source_->Name(); }
  /// Bytes in the file when it was opened.
  uint64_t Length() const { return length_; }
  /// Whether an operation failed.
  bool HasFailed() const { return !problem_.empty(); }
  /// The operation that failed last.
  Failure WhatFailed() const { return FileFailure(Path(), problem_); }
  /// Whether the status belongs to this very file, by whatever name.
  bool IsSameFile(const struct stat& other) const { return source_->IsSameFile(other); }

 private:
  // A piece of the file of kBlockSize bytes, at a multiple of that. Shorter where the file ended.
  struct Block {
    uint64_t begin = 0;
    uint64_t size = 0;
    uint64_t lastUse = 0;
    std::unique_ptr<uint8_t[]> bytes;
  };

  QiroK7MError ReadSome(uint8_t* target, uint64_t byteCount, uint64_t* bytesRead);
  QiroK7MError Seek(int64_t offset, QiroK7MSeekPos origin);
  // The block that holds the byte at the position; null when none in memory does.
  Block* Find();
  // Reads the block of the position.
  QiroK7MError Load();
  // The block that begins there, or one to be used anew.
  Block* BlockFor(uint64_t begin);
  // Reads at the position into memory until it is full or the input ends.
  bool ReadSource(uint8_t* target, uint64_t byteCount, uint64_t position, uint64_t* bytesRead);
  QiroK7MError Fail(const std::string& problem);

  std::shared_ptr<InputSource> source_;
  uint64_t length_ = 0;
  uint64_t position_ = 0;
  uint64_t knownEnd_ = 0;  // Of the file, when it was measured last.
  std::vector<Block> blocks_;
  size_t lastFound_ = 0;  // Index of a block.
  uint64_t useCount_ = 0;
  std::string problem_;
};

}  // namespace qiro::k7m::tool
