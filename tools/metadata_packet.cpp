#include "metadata_packet.h"

#include <cerrno>
#include <fstream>

namespace qiro::k7m::tool {

std::vector<uint8_t> ReadPacketFile(const std::string& path) {
  const FileStream file(path);  // For its messages.
  constexpr uint64_t kTooLong = 0x4000001;
  if (file.Length() >= kTooLong) throw LibraryFailure(path, kQiroK7MErrorMetadataTooLarge);
  std::vector<uint8_t> packet(file.Length());
  std::ifstream stream(path, std::ios::binary);
  stream.read(reinterpret_cast<char*>(packet.data()), static_cast<std::streamsize>(packet.size()));
  if (!stream) throw SystemFailure(path, errno);
  return packet;
}

std::vector<uint8_t> ReadOwnPacket(const Document& document) {
  uint32_t length = 0;
  document.Check(QiroK7MReaderGetUlbDataLength(document.Reader(), &length));
  std::vector<uint8_t> packet(length);
  if (length > 0) document.Check(QiroK7MReaderCopyUlbData(document.Reader(), packet.data()));
  return packet;
}

}  // namespace qiro::k7m::tool
