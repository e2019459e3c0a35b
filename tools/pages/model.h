/// @file model.h
/// What CLI11 knows of the program, as the manual pages and the completions need it.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace qiro::k7m::tool {

struct OptionText {
  std::vector<std::string> names;  ///< With their dashes, short ones first; none for a positional.
  std::string value;               ///< The name of the value; empty for a flag.
  std::string purpose;
  bool isRequired = false;
  bool takesMany = false;
  bool namesFile = false;             ///< The value is the name of a file.
  std::vector<std::string> excludes;  ///< Names of options that it cannot stand with.
  std::vector<std::string> needs;
};

struct CommandText {
  std::string name;  ///< Empty for the program itself.
  std::string purpose;
  std::string example;
  std::vector<OptionText> positionals;
  std::vector<OptionText> options;
};

struct ProgramText {
  CommandText program;
  std::vector<CommandText> commands;
};

ProgramText TextOf(const CLI::App& program);

}  // namespace qiro::k7m::tool
