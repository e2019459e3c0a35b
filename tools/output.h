/// @file output.h
/// Buffered writing to a file descriptor, the standard output above all.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qiro::k7m::tool {

/// Gathers bytes and hands them to the system in large pieces. Failures are thrown with the
/// system's message; a reader that has left its end of a pipe is thrown as OutputClosed.
class Output {
 public:
  /// @param descriptor  stays the caller's
  /// @param name        for messages
  Output(int descriptor, std::string name);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void Write(const void* bytes, size_t size);
  void Write(std::string_view text) { Write(text.data(), text.size()); }
  /// As Write(), but nothing is handed to the system and so nothing is thrown; for destructors.
  void WriteLater(std::string_view text) {
    buffer_.insert(buffer_.end(), text.begin(), text.end());
  }
  /// Hands over everything gathered so far. The destructor deliberately does not.
  void Flush();
  bool IsTerminal() const;

 private:
  void WriteAll(const char* bytes, size_t size);

  int descriptor_;
  std::string name_;
  std::vector<char> buffer_;
};

}  // namespace qiro::k7m::tool
