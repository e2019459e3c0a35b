#include "failure.h"

#include <system_error>

namespace qiro::k7m::tool {

Failure FileFailure(const std::string& path, const std::string& message) {
  return Failure(path + ": " + message);
}

std::string SystemMessage(int errorNumber) { return std::generic_category().message(errorNumber); }

Failure SystemFailure(const std::string& path, int errorNumber) {
  return FileFailure(path, SystemMessage(errorNumber));
}

Failure LibraryFailure(const std::string& path, QiroK7MError code) {
  return FileFailure(path, DescribeCode(code));
}

std::string DescribeCode(QiroK7MError code) {
  return std::string(QiroK7MErrorName(code)) + " (" + std::to_string(code) +
         "): " + QiroK7MErrorText(code);
}

}  // namespace qiro::k7m::tool
