/// @file recording_end.h
/// When a recording goes on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qiro::k7m::tool {

/// For every track of a K7R file, in file order and in its own scale, the earliest time of a sample
/// that the file can be continued with. Tracks that end with the movie go on where they end, the
/// others when the movie ends; so all are in step to one unit of the movie's scale. A sample of
/// the hint track follows every time.
std::vector<uint64_t> TimesBehindEnd(const std::string& path);

}  // namespace qiro::k7m::tool
