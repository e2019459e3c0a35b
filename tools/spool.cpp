#include "spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "failure.h"
#include "local_file.h"

namespace qiro::k7m::tool {
namespace {

constexpr const char* kName = "standard input";
constexpr size_t kPieceSize = size_t{256} * 1024;

std::string Folder() {
  const char* const folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

int MakeTemporaryFile(const std::string& folder) {
  std::string path = folder + "/k7m-spool-XXXXXX";
  const int descriptor = mkostemp(path.data(), O_CLOEXEC);
  if (descriptor < 0) throw SystemFailure(folder, errno);
  unlink(path.c_str());
  return descriptor;
}

// The bytes read; 0 at the end.
size_t ReadPiece(std::vector<uint8_t>* piece) {
  for (;;) {
    const ssize_t count = read(STDIN_FILENO, piece->data(), piece->size());
    if (count >= 0) return static_cast<size_t>(count);
    if (errno != EINTR) throw SystemFailure(kName, errno);
  }
}

void WriteAll(int descriptor, const std::string& folder, const uint8_t* bytes, size_t size) {
  while (size > 0) {
    const ssize_t count = write(descriptor, bytes, size);
    if (count >= 0) {
      bytes += count;
      size -= static_cast<size_t>(count);
    } else if (errno != EINTR) {
      throw FileFailure(folder, "the copy of the standard input: " + SystemMessage(errno));
    }
  }
}

void CopyStandardInput(int descriptor, const std::string& folder, uint64_t limit) {
  std::vector<uint8_t> piece(kPieceSize);
  for (uint64_t length = 0;;) {
    const size_t size = ReadPiece(&piece);
    if (size == 0) return;
    if (size > limit - length) {
      throw FileFailure(kName, "longer than the " + std::to_string(limit) +
                                   " bytes that may be spooled (see --spool-limit)");
    }
    WriteAll(descriptor, folder, piece.data(), size);
    length += size;
  }
}

}  // namespace

std::shared_ptr<InputSource> SpoolStandardInput(uint64_t limit) {
  const std::string folder = Folder();
  const auto spool = std::make_shared<LocalFile>(MakeTemporaryFile(folder), kName);
  CopyStandardInput(spool->Descriptor(), folder, limit);
  return spool;
}

}  // namespace qiro::k7m::tool
