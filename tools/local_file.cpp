#include "local_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "failure.h"

namespace qiro::k7m::tool {
namespace {

static_assert(sizeof(off_t) == 8, "files over 4 GiB need 64-bit offsets");

constexpr uint64_t kLargestOffset = std::numeric_limits<int64_t>::max();

}  // namespace

LocalFile::LocalFile(int descriptor, const std::string& name)
    : InputSource(name), descriptor_(descriptor) {
  const bool isThere = fstat(descriptor_, &status_) == 0;
  int problem = 0;
  if (isThere && S_ISDIR(status_.st_mode)) {
    problem = EISDIR;
  } else if (!isThere || lseek(descriptor_, 0, SEEK_END) < 0) {
    problem = errno;
  }
  if (problem == 0) return;
  close(descriptor_);
  throw SystemFailure(name, problem);
}

LocalFile::~LocalFile() { close(descriptor_); }

bool LocalFile::Read(uint8_t* target, uint64_t byteCount, uint64_t position, uint64_t* bytesRead) {
  *bytesRead = 0;
  while (*bytesRead < byteCount && position + *bytesRead <= kLargestOffset) {
    const ssize_t count = pread(descriptor_, target + *bytesRead, byteCount - *bytesRead,
                                static_cast<off_t>(position + *bytesRead));
    if (count == 0) break;
    if (count > 0) {
      *bytesRead += static_cast<uint64_t>(count);
    } else if (errno != EINTR) {
      return Fail(SystemMessage(errno));
    }
  }
  return true;
}

bool LocalFile::Measure(uint64_t* length) {
  const off_t end = lseek(descriptor_, 0, SEEK_END);
  if (end < 0) return Fail(SystemMessage(errno));
  *length = static_cast<uint64_t>(end);
  return true;
}

bool LocalFile::IsSameFile(const struct stat& other) const {
  return other.st_dev == status_.st_dev && other.st_ino == status_.st_ino;
}

std::shared_ptr<InputSource> OpenLocalFile(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) throw SystemFailure(path, errno);
  return std::make_shared<LocalFile>(descriptor, path);
}

}  // namespace qiro::k7m::tool
