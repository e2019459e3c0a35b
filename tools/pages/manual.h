/// @file manual.h
/// Manual pages in the language of man(7).
#pragma once

#include <string>

#include "pages/model.h"

namespace qiro::k7m::tool {

/// k7m(1): all commands.
std::string ManualOfProgram(const ProgramText& text);

/// k7m-COMMAND(1).
std::string ManualOfCommand(const ProgramText& text, const CommandText& command);

}  // namespace qiro::k7m::tool
