/// @file warnings.h
/// Shows the library's warnings, and decides whether reading goes on after them.
#pragma once

#include <k7m/k7m.h>

#include <cstdint>
#include <map>
#include <string>

namespace qiro::k7m::tool {

/// Prints each kind of warning a few times; the rest is counted and told at the end.
class Warnings {
 public:
  /// @param isStrict  the first warning ends the work
  /// @param isQuiet   nothing is printed
  Warnings(std::string path, bool isStrict, bool isQuiet = false);
  ~Warnings();
  Warnings(const Warnings&) = delete;
  Warnings& operator=(const Warnings&) = delete;

  /// The record to open a document with. This object must outlive the document.
  QiroK7MWarningHandlerCallBacks CallBacks();

 private:
  void Show(QiroK7MError warning);

  std::string path_;
  bool isStrict_;
  bool isQuiet_;
  std::map<QiroK7MError, uint64_t> counts_;
};

}  // namespace qiro::k7m::tool
