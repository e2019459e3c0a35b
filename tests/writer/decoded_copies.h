/// @file decoded_copies.h
/// Copies of media files, and another program's opinion about them.
#ifndef K7M_TESTS_WRITER_DECODED_COPIES_H
#define K7M_TESTS_WRITER_DECODED_COPIES_H

#include <string>

#include "support/opened_writer.h"

namespace k7mtest {

Bytes FileBytes(const std::string& path);
/// A video or audio track like that of another file, with its first description.
QiroK7MTrack* CopyTrack(OpenedWriter& writer, QiroK7MTrack* from, uint32_t gapCount = 0);
enum class Compared : uint8_t { kDecodedFrames, kPackets };
/// The video and the audio stream are the same, edit lists ignored.
void ExpectSameFrames(const Bytes& copy, const std::string& original,
                      Compared what = Compared::kDecodedFrames);

}  // namespace k7mtest

#endif
