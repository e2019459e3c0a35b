#include <k7m/k7m.h>

#include "command.h"

namespace qiro::k7m::tool {

void DescribeProgram(CLI::App& program, Action& chosen) {
  program.name("k7m");
  program.description("Looks into media files in the K7M container, and copies them.");
  program.set_version_flag("--version", QiroK7MGetLibraryVersion());
  program.footer("Example:\n  k7m info clip.mp4");
  program.require_subcommand(1);
  AddInfoCommand(program, chosen);
  AddTreeCommand(program, chosen);
  AddSamplesCommand(program, chosen);
  AddExtractCommand(program, chosen);
  AddRemuxCommand(program, chosen);
  AddIndexCommand(program, chosen);
  AddQueryCommand(program, chosen);
  AddFragmentCommand(program, chosen);
  AddRepairCommand(program, chosen);
  AddAppendCommand(program, chosen);
  AddVerifyCommand(program, chosen);
}

}  // namespace qiro::k7m::tool
