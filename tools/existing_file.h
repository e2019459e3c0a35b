/// @file existing_file.h
/// A file that is changed where it lies.
#pragma once

#include <cstdint>
#include <string>

namespace qiro::k7m::tool {

/// A regular file open for reading and writing. Failures are thrown with the system's message.
class ExistingFile {
 public:
  explicit ExistingFile(const std::string& path);
  ~ExistingFile();
  ExistingFile(const ExistingFile&) = delete;
  ExistingFile& operator=(const ExistingFile&) = delete;

  /// Stays this object's.
  int Descriptor() const { return descriptor_; }
  /// Bytes in the file now.
  uint64_t Length() const;

 private:
  std::string name_;
  int descriptor_;
};

}  // namespace qiro::k7m::tool
