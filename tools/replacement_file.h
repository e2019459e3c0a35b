/// @file replacement_file.h
/// A file that appears under its name only when it is complete.
#pragma once

#include <sys/types.h>

#include <string>

namespace qiro::k7m::tool {

/// A file under a temporary name beside its target, which takes the target's place in Commit().
/// Without that, also when a signal ends the program, the target is as it was and nothing else is
/// left behind.
///
/// There is at most one object of this class at a time.
class ReplacementFile {
 public:
  /// What becomes of a target that is there already.
  enum class Target { kMayBeReplaced, kMustBeNew };

  /// Makes the temporary file. Throws a Failure, with the path as the user wrote it.
  ReplacementFile(const std::string& path, Target target);
  ~ReplacementFile();
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  /// Open for reading and writing; stays this object's.
  int Descriptor() const { return descriptor_; }
  /// Closes the file and gives it the target's name.
  void Commit();

 private:
  void CloseChecked();
  void Rename();

  std::string name_;       // As the user wrote it, for messages.
  std::string target_;     // With symbolic links resolved.
  std::string temporary_;  // Empty once it has become the target.
  Target rule_;
  int descriptor_ = -1;
};

/// Throws the Failure of a target that has to be new and is not.
[[noreturn]] void FailAsTaken(const std::string& path);

}  // namespace qiro::k7m::tool
