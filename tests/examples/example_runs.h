/// @file example_runs.h
/// Runs of example programs on files in a folder of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tools/decoded_streams.h"

namespace k7mtest {

/// Raw bytes of a stream as ffmpeg decodes it.
inline std::string Decode(const std::string& path, const std::string& options) {
  return RunCommand("ffmpeg -nostdin -v error -i " + Quoted(path) + " " + options + " -")
      .value_or("");
}

class ExampleRuns : public testing::Test {
 protected:
  ExampleRuns() {
    std::string pattern = (std::filesystem::temp_directory_path() / "k7m-test-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
  }
  ~ExampleRuns() override { std::filesystem::remove_all(folder_); }

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  /// Whether the program succeeded.
  static bool Run(const std::string& program, const std::vector<std::string>& arguments) {
    std::string command = Quoted(program);
    for (const std::string& argument : arguments) command += " " + Quoted(argument);
    return RunCommand(command + " 2>&1").has_value();
  }

 private:
  std::filesystem::path folder_;
};

}  // namespace k7mtest
