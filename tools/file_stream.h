/// @file file_stream.h
/// A file as the stream that the library reads from.
#pragma once

#include <k7m/k7m.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qiro::k7m::tool {

/// A file open for reading with a position of its own. The operating system's position is never
/// used, so that seeking and telling cost nothing; the buffer stays until a read falls outside it.
class FileStream {
 public:
  /// What the callbacks return, and the library passes on, when the system failed; ErrorNumber()
  /// tells why.
  static constexpr QiroK7MError kSystemFailed = 0x5359534D;

  /// Opens the file; throws a Failure with the system's message when it cannot be read and sought.
  explicit FileStream(const std::string& path);
  ~FileStream();
  FileStream(const FileStream&) = delete;
  FileStream& operator=(const FileStream&) = delete;

  /// The record to open a document with. This object must outlive the document.
  QiroK7MIStreamCallBacks CallBacks();

  const std::string& Path() const { return path_; }
  /// Bytes in the file when it was opened.
  uint64_t Length() const { return length_; }
  /// The errno value of the operation that failed; 0 while none did.
  int ErrorNumber() const { return errorNumber_; }
  /// Whether the status belongs to this very file, by whatever name.
  bool IsSameFile(const struct stat& other) const;

 private:
  QiroK7MError ReadSome(uint8_t* target, uint64_t byteCount, uint64_t* bytesRead);
  QiroK7MError Seek(int64_t offset, QiroK7MSeekPos origin);
  QiroK7MError FillBuffer();
  // Reads at the position into memory until it is full or the file ends.
  bool ReadFile(uint8_t* target, uint64_t byteCount, uint64_t position, uint64_t* bytesRead);
  QiroK7MError Fail(int errorNumber);

  std::string path_;
  int file_ = -1;
  uint64_t length_ = 0;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  uint64_t position_ = 0;
  std::vector<uint8_t> buffer_;
  uint64_t bufferBegin_ = 0;  // Offset in the file of the buffer's first byte.
  uint64_t bufferSize_ = 0;   // Bytes in the buffer that are valid.
  int errorNumber_ = 0;
};

}  // namespace qiro::k7m::tool
