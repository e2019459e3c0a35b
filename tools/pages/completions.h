/// @file completions.h
/// Files that tell shells how a command line of the program goes on.
#pragma once

#include <string>

#include "pages/model.h"

namespace qiro::k7m::tool {

std::string BashCompletion(const ProgramText& text);
std::string ZshCompletion(const ProgramText& text);
std::string FishCompletion(const ProgramText& text);

}  // namespace qiro::k7m::tool
