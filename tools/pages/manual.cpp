#include "pages/manual.h"

#include <cctype>
#include <string_view>

namespace qiro::k7m::tool {
namespace {

/// Text that troff prints as it stands. Hyphens are written so that they can be copied and
/// searched.
std::string Escaped(std::string_view text) {
  std::string out;
  for (const char letter : text) {
    const bool beginsLine = out.empty() || out.back() == '\n';
    if (beginsLine && (letter == '.' || letter == '\'')) out += "\\&";
    if (letter == '-') {
      out += "\\-";
    } else if (letter == '\\') {
      out += "\\e";
    } else {
      out += letter;
    }
  }
  return out;
}

std::string Bold(std::string_view text) { return "\\fB" + Escaped(text) + "\\fR"; }
std::string Italic(std::string_view text) { return "\\fI" + Escaped(text) + "\\fR"; }

std::string Upper(std::string_view text) {
  std::string out;
  for (const char letter : text) {
    out += static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  }
  return out;
}

/// The first letter small, as the line under NAME has it.
std::string Summary(std::string text) {
  text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  if (text.back() == '.') text.pop_back();
  return text;
}

std::string Title(const std::string& page) {
  return ".\\\" Made by scripts/pages out of the descriptions in tools/.\n.TH " + Upper(page) +
         " 1 \"\" \"libK7M\" \"User Commands\"\n";
}

std::string Name(const std::string& page, const std::string& purpose) {
  return ".SH NAME\n" + Escaped(page) + " \\- " + Escaped(Summary(purpose)) + "\n";
}

std::string Relations(const char* verb, const std::vector<std::string>& names) {
  std::string out;
  for (const std::string& name : names) out += (out.empty() ? "" : ", ") + Bold(name);
  return out.empty() ? "" : std::string(" ") + verb + " " + out + ".";
}

std::string Entry(const OptionText& option) {
  std::string heading;
  for (const std::string& name : option.names) {
    heading += (heading.empty() ? "" : ", ") + Bold(name);
  }
  if (!option.value.empty()) heading += (heading.empty() ? "" : " ") + Italic(option.value);
  if (option.takesMany) heading += " ...";
  std::string text = Escaped(option.purpose) + ".";
  if (option.isRequired && !option.names.empty()) text += " Required.";
  text += Relations("Not with", option.excludes) + Relations("Only with", option.needs);
  return ".TP\n" + heading + "\n" + text + "\n";
}

std::string Entries(const char* title, const std::vector<OptionText>& options) {
  std::string out;
  for (const OptionText& option : options) out += Entry(option);
  return out.empty() ? "" : std::string(".SH ") + title + "\n" + out;
}

std::string Example(const CommandText& command) {
  return ".SH EXAMPLE\n.nf\n" + Escaped(command.example) + "\n.fi\n";
}

std::string Synopsis(const CommandText& command) {
  std::string line = Bold("k7m " + command.name) + " [" + Italic("options") + "]";
  for (const OptionText& positional : command.positionals) line += " " + Italic(positional.value);
  return ".SH SYNOPSIS\n" + line + "\n";
}

constexpr const char* kExitStatus =
    ".SH EXIT STATUS\n"
    ".TP\n0\nSuccess.\n"
    ".TP\n1\nThe file, the system or the library refused; for k7m\\-verify(1), the file has "
    "errors.\n"
    ".TP\n2\nThe command line makes no sense.\n"
    ".TP\n3\nFrom k7m\\-verify(1) alone: there are warnings, and no errors.\n";

}  // namespace

std::string ManualOfProgram(const ProgramText& text) {
  std::string page =
      Title("k7m") + Name("k7m", text.program.purpose) + ".SH SYNOPSIS\n" + Bold("k7m") + " " +
      Italic("command") + " [" + Italic("options") + "] ...\n" + ".br\n" + Bold("k7m") + " [" +
      Bold("--help") + " | " + Bold("--version") + "]\n.SH DESCRIPTION\n" +
      Escaped(text.program.purpose) +
      "\nResults go to the standard output, everything else to the standard error.\n" +
      ".SH COMMANDS\n";
  for (const CommandText& command : text.commands) {
    page += ".TP\n" + Bold("k7m-" + command.name) + "(1)\n" + Escaped(command.purpose) + ".\n";
  }
  return page + Entries("OPTIONS", text.program.options) + kExitStatus + Example(text.program);
}

std::string ManualOfCommand(const ProgramText& text, const CommandText& command) {
  const std::string name = "k7m-" + command.name;
  std::string page = Title(name) + Name(name, command.purpose) + Synopsis(command) +
                     ".SH DESCRIPTION\n" + Escaped(command.purpose) + ".\n" +
                     Entries("ARGUMENTS", command.positionals) +
                     Entries("OPTIONS", command.options) + Example(command) + kExitStatus +
                     ".SH SEE ALSO\n" + Bold("k7m") + "(1)";
  for (const CommandText& other : text.commands) {
    if (other.name != command.name) page += ",\n" + Bold("k7m-" + other.name) + "(1)";
  }
  return page + "\n";
}

}  // namespace qiro::k7m::tool
