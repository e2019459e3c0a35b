/// @file spool.h
/// The standard input as an input that can be read at any offset.
#pragma once

#include "input_source.h"

namespace qiro::k7m::tool {

/// Copies the standard input to its end into a temporary file, in the folder that TMPDIR names or
/// in /tmp, which has no name and is gone with the program. Throws a Failure when that fails, and
/// when there are more than `limit` bytes.
std::shared_ptr<InputSource> SpoolStandardInput(uint64_t limit);

}  // namespace qiro::k7m::tool
