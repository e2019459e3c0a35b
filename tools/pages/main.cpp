// Writes the manual pages and the completions of the program. usage: k7m-pages FOLDER; the folders
// man and completions in it must be there.
#include <cstdio>
#include <exception>
#include <fstream>

#include "command.h"
#include "pages/completions.h"
#include "pages/manual.h"

namespace qiro::k7m::tool {
namespace {

void Write(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  file.exceptions(std::ios::badbit | std::ios::failbit);
  file << text;
  file.close();
}

void WriteAll(const std::string& folder) {
  CLI::App program;
  Action chosen;
  DescribeProgram(program, chosen);
  const ProgramText text = TextOf(program);
  Write(folder + "/man/k7m.1", ManualOfProgram(text));
  for (const CommandText& command : text.commands) {
    Write(folder + "/man/k7m-" + command.name + ".1", ManualOfCommand(text, command));
  }
  Write(folder + "/completions/k7m.bash", BashCompletion(text));
  Write(folder + "/completions/_k7m", ZshCompletion(text));
  Write(folder + "/completions/k7m.fish", FishCompletion(text));
}

}  // namespace
}  // namespace qiro::k7m::tool

int main(int argumentCount, char** arguments) {
  if (argumentCount != 2) return 2;
  try {
    qiro::k7m::tool::WriteAll(arguments[1]);
    return 0;
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "k7m-pages: %s\n", problem.what());
    return 1;
  }
}
