#include "output.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "failure.h"

namespace qiro::k7m::tool {
namespace {

constexpr size_t kBufferCapacity = size_t{64} * 1024;
constexpr size_t kRoomForLater = 64;  // So that WriteLater() needs no memory.

}  // namespace

Output::Output(int descriptor, std::string name) : descriptor_(descriptor), name_(std::move(name)) {
  buffer_.reserve(kBufferCapacity + kRoomForLater);
}

void Output::Write(const void* bytes, size_t size) {
  if (buffer_.size() + size > kBufferCapacity) Flush();
  const char* begin = static_cast<const char*>(bytes);
  if (size > kBufferCapacity) {
    WriteAll(begin, size);
  } else {
    buffer_.insert(buffer_.end(), begin, begin + size);
  }
}

void Output::Flush() {
  // Emptied first: what failed once is not tried again.
  std::vector<char> bytes;
  bytes.reserve(kBufferCapacity + kRoomForLater);
  std::swap(bytes, buffer_);
  WriteAll(bytes.data(), bytes.size());
}

bool Output::IsTerminal() const { return isatty(descriptor_) != 0; }

void Output::WriteAll(const char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t count = write(descriptor_, bytes, size);
    if (count >= 0) {
      bytes += count;
      size -= static_cast<size_t>(count);
    } else if (errno == EPIPE) {
      throw OutputClosed();
    } else if (errno != EINTR) {
      throw SystemFailure(name_, errno);
    }
  }
}

}  // namespace qiro::k7m::tool
