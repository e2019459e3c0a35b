#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "failure.h"
#include "file_stream.h"

namespace qiro::k7m::tool {
namespace {

void RefuseSameFile(const FileStream& input, const struct stat& status, const std::string& name) {
  if (!input.IsSameFile(status)) return;
  throw Failure(name + ": the output would overwrite the input", ExitCode::kUsage);
}

}  // namespace

OutputFile::OutputFile(const std::string& path, const FileStream& input,
                       ReplacementFile::Target rule)
    : name_(path == "-" ? "standard output" : path) {
  struct stat status {};
  const bool isStandardOutput = path == "-";
  const int found = isStandardOutput ? fstat(STDOUT_FILENO, &status) : stat(path.c_str(), &status);
  if (found == 0) RefuseSameFile(input, status, name_);
  int descriptor = STDOUT_FILENO;
  if (!isStandardOutput && found == 0 && !S_ISREG(status.st_mode)) {
    device_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (device_ < 0) throw SystemFailure(name_, errno);
    descriptor = device_;
  } else if (!isStandardOutput) {
    replacement_.emplace(path, rule);
    descriptor = replacement_->Descriptor();
  }
  output_ = std::make_unique<Output>(descriptor, name_);
}

OutputFile::~OutputFile() {
  if (device_ >= 0) close(device_);
}

void OutputFile::Commit() {
  output_->Flush();
  if (replacement_) replacement_->Commit();
  if (device_ < 0) return;
  const int device = device_;
  device_ = -1;
  if (close(device) != 0) throw SystemFailure(name_, errno);
}

void RefuseToOverwrite(const FileStream& input, const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) RefuseSameFile(input, status, path);
}

}  // namespace qiro::k7m::tool
