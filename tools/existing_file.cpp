#include "existing_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "failure.h"

namespace qiro::k7m::tool {

ExistingFile::ExistingFile(const std::string& path)
    : name_(path), descriptor_(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
  if (descriptor_ < 0) throw SystemFailure(name_, errno);
  struct stat status {};
  if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode)) return;
  close(descriptor_);
  throw FileFailure(name_, "not a regular file");
}

ExistingFile::~ExistingFile() { close(descriptor_); }

uint64_t ExistingFile::Length() const {
  struct stat status {};
  if (fstat(descriptor_, &status) != 0) throw SystemFailure(name_, errno);
  return static_cast<uint64_t>(status.st_size);
}

}  // namespace qiro::k7m::tool
