/// @file output_file.h
/// The file named by -o: it appears only when it is complete.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "output.h"
#include "replacement_file.h"

namespace qiro::k7m::tool {

class FileStream;

/// A file for a command's result, written from its begin to its end and completed by Commit(). "-"
/// stands for the standard output. Devices and pipes have no temporary name and are written
/// directly.
///
/// There is at most one object of this class at a time.
class OutputFile {
 public:
  /// Refuses a path that names the file that `input` reads, and one that the rule forbids.
  OutputFile(const std::string& path, const FileStream& input,
             ReplacementFile::Target rule = ReplacementFile::Target::kMayBeReplaced);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(const void* bytes, size_t size) { output_->Write(bytes, size); }
  /// Makes the result appear. Nothing may be written afterwards.
  void Commit();

 private:
  std::string name_;                            // As the user wrote it, for messages.
  std::optional<ReplacementFile> replacement_;  // None when the target is written directly.
  int device_ = -1;                             // What is written directly and has to be closed.
  std::unique_ptr<Output> output_;
};

/// Throws when the path names the very file that `input` reads, by whatever name.
void RefuseToOverwrite(const FileStream& input, const std::string& path);

}  // namespace qiro::k7m::tool
