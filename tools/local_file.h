/// @file local_file.h
/// A file of the system as an input.
#pragma once

#include "input_source.h"

namespace qiro::k7m::tool {

/// A file open for reading. The operating system's position is never used.
class LocalFile : public InputSource {
 public:
  /// Takes the descriptor over. Throws a Failure unless it can be read and sought.
  LocalFile(int descriptor, const std::string& name);
  ~LocalFile() override;

  /// Stays this object's.
  int Descriptor() const { return descriptor_; }
  bool Read(uint8_t* target, uint64_t byteCount, uint64_t position, uint64_t* bytesRead) override;
  bool Measure(uint64_t* length) override;
  bool IsSameFile(const struct stat& other) const override;

 private:
  int descriptor_;
  struct stat status_ {};
};

/// Throws a Failure with the system's message when the file cannot be opened.
std::shared_ptr<InputSource> OpenLocalFile(const std::string& path);

}  // namespace qiro::k7m::tool
