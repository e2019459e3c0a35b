/// @file metadata_packet.h
/// Packets that are taken from files as they are.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "document.h"

namespace qiro::k7m::tool {

/// The bytes of a file; at most as many as a metadata packet can have.
std::vector<uint8_t> ReadPacketFile(const std::string& path);
/// The metadata packet of a document; empty when it has none.
std::vector<uint8_t> ReadOwnPacket(const Document& document);

/// Whether a metadata packet stands before the first media or fragment. Nothing but the headers of
/// the boxes up to there is read.
bool HasPacketBeforeMedia(const FileStream& file);

}  // namespace qiro::k7m::tool
