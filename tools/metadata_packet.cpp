#include "metadata_packet.h"

#include <cerrno>
#include <fstream>

#include "box_place.h"

namespace qiro::k7m::tool {
namespace {

bool IsPacket(FileNumbers* numbers, const BoxPlace& box) {
  if (box.type != "uuid" || box.size < box.headerSize + 16) return false;
  const uint64_t extendedType = box.offset + box.headerSize;
  return numbers->At(extendedType, 8) == 0xBE7ACFCB97A942E8 &&
         numbers->At(extendedType + 8, 8) == 0x9C71999491E3AFAC;
}

}  // namespace

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

bool HasPacketBeforeMedia(const FileStream& file) {
  FileStream stream(file.Source());
  FileNumbers numbers(&stream);
  uint64_t offset = 0;
  while (const auto box = BoxAt(&numbers, offset, numbers.Length())) {
    if (IsPacket(&numbers, *box)) return true;
    if (box->type == "moof" || box->type == "mdat") return false;
    offset += box->size;
  }
  return false;
}

}  // namespace qiro::k7m::tool
