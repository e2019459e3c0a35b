#include "pages/completions.h"

namespace qiro::k7m::tool {
namespace {

constexpr const char* kOrigin = "# Made by scripts/pages out of the descriptions in tools/.\n";

std::string Joined(const std::vector<std::string>& words, const std::string& between) {
  std::string out;
  for (const std::string& word : words) out += (out.empty() ? "" : between) + word;
  return out;
}

std::vector<std::string> OptionNames(const CommandText& command) {
  std::vector<std::string> names;
  for (const OptionText& option : command.options) {
    names.insert(names.end(), option.names.begin(), option.names.end());
  }
  return names;
}

std::string CommandNames(const ProgramText& text) {
  std::vector<std::string> names;
  for (const CommandText& command : text.commands) names.push_back(command.name);
  return Joined(names, " ");
}

/// In single quotes, for a shell whose quotes end at the next one whatever stands before it.
std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (const char letter : text) {
    out += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  }
  return out + "'";
}

/// With a backslash before each of some letters.
std::string Escaped(const std::string& text, const std::string& letters) {
  std::string out;
  for (const char letter : text) {
    if (letters.find(letter) != std::string::npos) out += '\\';
    out += letter;
  }
  return out;
}

/// A description for `_arguments` and `_describe`, without letters that mean something to them.
std::string ZshQuoted(const std::string& text) { return Escaped(text, ":[]\\"); }

/// The name of a value for `_arguments`, which shows it. What is behind a colon would be run.
std::string ZshValue(const std::string& text) { return Escaped(text, ":\\"); }

/// In single quotes of fish, where a backslash protects.
std::string FishQuoted(const std::string& text) { return "'" + Escaped(text, "'\\") + "'"; }

/// Options whose value is no file: nothing is known about it.
std::string BashOpaqueOptions(const ProgramText& text) {
  std::vector<std::string> cases;
  for (const CommandText& command : text.commands) {
    for (const OptionText& option : command.options) {
      if (option.value.empty() || option.namesFile) continue;
      for (const std::string& name : option.names) cases.push_back(command.name + ":" + name);
    }
  }
  return Joined(cases, " | ");
}

std::string ZshAction(const OptionText& option) {
  if (option.value.empty()) return "";
  return ":" + ZshValue(option.value) + ":" + (option.namesFile ? "_files" : "");
}

/// One name of an option, as `_arguments` wants it. A long one takes its value behind '=' or as the
/// next word.
std::string ZshOption(const OptionText& option, const std::string& name) {
  std::string text = option.takesMany ? "*" : "";
  text += name;
  if (!option.value.empty() && name.size() > 2) text += "=";
  text.append("[").append(ZshQuoted(option.purpose)).append("]");
  return Quoted(text + ZshAction(option));
}

std::string ZshOptions(const CommandText& command) {
  std::string out;
  for (const OptionText& option : command.options) {
    for (const std::string& name : option.names) {
      out.append(" \\\n        ").append(ZshOption(option, name));
    }
  }
  for (const OptionText& positional : command.positionals) {
    out += " \\\n        " + Quoted(":" + ZshValue(positional.value) + ":_files");
  }
  return out;
}

std::string FishOption(const std::string& condition, const OptionText& option) {
  std::string line = "complete -c k7m -n " + FishQuoted(condition);
  for (const std::string& name : option.names) {
    line += name.size() > 2 ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  if (!option.value.empty()) line += option.namesFile ? " -r -F" : " -x";
  return line + " -d " + FishQuoted(option.purpose) + "\n";
}

}  // namespace

std::string BashCompletion(const ProgramText& text) {
  std::string out = kOrigin;
  out +=
      "_k7m() {\n"
      "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}\n"
      "  local command=${COMP_WORDS[1]} words=\n"
      "  COMPREPLY=()\n"
      "  # Bash makes '=' a word of its own.\n"
      "  if [ \"$current\" = '=' ]; then\n"
      "    current=\n"
      "  elif [ \"$previous\" = '=' ] && [ \"$COMP_CWORD\" -gt 2 ]; then\n"
      "    previous=${COMP_WORDS[COMP_CWORD-2]}\n"
      "  fi\n"
      "  if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
      "    words='" +
      CommandNames(text) + " " + Joined(OptionNames(text.program), " ") +
      "'\n"
      "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
      "    return\n"
      "  fi\n"
      "  case $command:$previous in\n"
      "    " +
      BashOpaqueOptions(text) +
      ") return ;;\n"
      "  esac\n"
      "  if [[ $current != -* ]]; then\n"
      "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
      "    return\n"
      "  fi\n"
      "  case $command in\n";
  for (const CommandText& command : text.commands) {
    out += "    " + command.name + ") words='" + Joined(OptionNames(command), " ") + "' ;;\n";
  }
  return out +
         "  esac\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "}\n"
         "complete -o filenames -F _k7m k7m\n";
}

std::string ZshCompletion(const ProgramText& text) {
  std::string out = std::string("#compdef k7m\n") + kOrigin +
                    "_k7m() {\n"
                    "  if (( CURRENT == 2 )); then\n"
                    "    local -a commands=(";
  for (const CommandText& command : text.commands) {
    out += "\n      " + Quoted(command.name + ":" + ZshQuoted(command.purpose));
  }
  out +=
      ")\n"
      "    _describe command commands\n"
      "    _arguments" +
      ZshOptions(text.program) +
      "\n"
      "    return\n"
      "  fi\n"
      "  shift words\n"
      "  (( CURRENT -= 1 ))\n"
      "  case $words[1] in\n";
  for (const CommandText& command : text.commands) {
    out += "    " + command.name + ")\n      _arguments" + ZshOptions(command) + " ;;\n";
  }
  return out + "  esac\n}\n_k7m \"$@\"\n";
}

std::string FishCompletion(const ProgramText& text) {
  std::string out = kOrigin;
  out += "complete -c k7m -n __fish_use_subcommand -f\n";
  for (const CommandText& command : text.commands) {
    out += "complete -c k7m -n __fish_use_subcommand -a " + command.name + " -d " +
           FishQuoted(command.purpose) + "\n";
  }
  for (const OptionText& option : text.program.options) {
    out += FishOption("__fish_use_subcommand", option);
  }
  for (const CommandText& command : text.commands) {
    for (const OptionText& option : command.options) {
      out += FishOption("__fish_seen_subcommand_from " + command.name, option);
    }
  }
  return out;
}

}  // namespace qiro::k7m::tool
