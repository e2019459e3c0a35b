/// @file input_source.h
/// Where the bytes of an input come from: a file, the standard input, or a server.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace qiro::k7m::tool {

/// Bytes that can be read at any offset, by several streams one after the other.
class InputSource {
 public:
  explicit InputSource(std::string name) : name_(std::move(name)) {}
  virtual ~InputSource() = default;
  InputSource(const InputSource&) = delete;
  InputSource& operator=(const InputSource&) = delete;

  /// For messages.
  const std::string& Name() const { return name_; }
  /// Reads at the position until the memory is full or the input ends. False: Problem() tells why.
  virtual bool Read(uint8_t* target, uint64_t byteCount, uint64_t position,
                    uint64_t* bytesRead) = 0;
  /// Bytes in the input now. False: Problem() tells why.
  virtual bool Measure(uint64_t* length) = 0;
  /// Whether the status belongs to this very file, by whatever name.
  virtual bool IsSameFile(const struct stat&) const { return false; }
  /// Whether every jump to another place costs a request to a server.
  virtual bool IsRemote() const { return false; }
  /// What went wrong last.
  const std::string& Problem() const { return problem_; }

 protected:
  bool Fail(std::string problem) {
    problem_ = std::move(problem);
    return false;
  }

 private:
  std::string name_;
  std::string problem_;
};

constexpr uint64_t kUsualSpoolLimit = uint64_t{4} << 30;

/// Opens what the user named as an input: "-" is the standard input, which is copied into a
/// temporary file of at most `spoolLimit` bytes; a text that begins with http:// or https:// is
/// fetched from a server as it is read; anything else is a file. Throws a Failure when that fails.
std::shared_ptr<InputSource> OpenInput(const std::string& path, uint64_t spoolLimit);

}  // namespace qiro::k7m::tool
