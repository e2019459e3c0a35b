/// @file run_program.h
/// Runs the built program and keeps what it said.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace k7mtest {

struct RunOptions {
  std::string folder = {};      ///< Where the program runs; empty: where the test does.
  std::string stdoutPath = {};  ///< A file to send the standard output to; empty: it is kept.
};

struct RunResult {
  int exitCode = -1;  ///< 128 plus the signal number when a signal ended the program.
  std::string out;
  std::string err;
};
std::ostream& operator<<(std::ostream& out, const RunResult& result);

/// Runs `k7m` with these arguments and waits for its end.
RunResult RunK7m(const std::vector<std::string>& arguments, const RunOptions& options = {});
/// Starts `k7m` and returns its process id. The descriptors become its standard output and error.
pid_t StartK7m(const std::vector<std::string>& arguments, int out, int err,
               const std::string& folder = "");
/// Waits for the end of a process; the result is as RunResult::exitCode.
int WaitFor(pid_t process);

/// A folder that is removed with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string Path(const std::string& name) const { return (path_ / name).string(); }
  /// Writes a file and returns its path.
  std::string Write(const std::string& name, const Bytes& bytes) const;
  /// The names of all files in the folder, sorted.
  std::vector<std::string> Names() const;

 private:
  std::filesystem::path path_;
};

Bytes ReadBytes(const std::string& path);
std::string ReadText(const std::string& path);

}  // namespace k7mtest
