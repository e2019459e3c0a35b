/// @file fragment_count.h
/// How many fragments a file has.
#pragma once

#include <cstdint>

namespace qiro::k7m::tool {

class FileStream;

/// Counts the movie fragments ('moof') among the boxes at the top of a file, up to the first box
/// that does not end in the file. Nothing but the headers of these boxes is read.
uint64_t CountFragments(const FileStream& file);

}  // namespace qiro::k7m::tool
