/// @file verified_file.h
/// Runs `k7m verify` and looks at what it found.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <ostream>
#include <set>
#include <string>

#include "run_program.h"
#include "support/bytes.h"

namespace k7mtest {

/// What the program found in a file.
struct Verdict {
  int exitCode = -1;
  nlohmann::json json;
  std::string err;

  /// The identifiers of all rules of errors and warnings.
  std::set<std::string> Rules() const;
  /// The findings of a rule on its first box; null when there are none.
  nlohmann::json Finding(const std::string& rule) const;
};

/// Writes the bytes to a file and verifies it.
Verdict Verify(const Bytes& bytes);

/// A file that breaks one rule.
struct BrokenFile {
  const char* rule;
  const char* path;  ///< Of the box that is named.
  int exitCode;
  std::function<Bytes()> make;
  /// Rules that the file cannot help breaking as well.
  std::set<std::string> others = {};
  /// Where the first place is, from the bytes of the file. Without it all places must lie in the
  /// box that is named.
  std::function<uint64_t(const Bytes&)> offset = {};
};
std::ostream& operator<<(std::ostream& out, const BrokenFile& file);

/// A name for a test made from the rule.
std::string NameOf(const testing::TestParamInfo<BrokenFile>& info);

/// Fails the test unless the rule was found in its place, and no other error or warning.
void ExpectFound(const BrokenFile& file);

}  // namespace k7mtest
