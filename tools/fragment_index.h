/// @file fragment_index.h
/// The index file of a K7R file.
#pragma once

#include <string>

#include "replacement_file.h"

namespace qiro::k7m::tool {

class FileStream;

/// Makes the index of the complete fragments of a file; "-" for the standard output. A last one
/// that is not complete is left out, with a message. Throws when there is none, and as
/// ListFragments().
void WriteFragmentIndex(FileStream* file, const std::string& indexPath,
                        ReplacementFile::Target rule);

}  // namespace qiro::k7m::tool
