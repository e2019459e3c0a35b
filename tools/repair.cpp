/// `k7m repair`: a K7R file without the fragment that its writer did not finish.
#include "command.h"
#include "recording_cut.h"

namespace qiro::k7m::tool {
namespace {

struct RepairOptions {
  std::string path;
};

void RunRepair(const RepairOptions& options, Output& out) {
  out.Write(CutText(options.path, CutRecording(options.path, kKeepAll)) + "\n");
}

}  // namespace

void AddRepairCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<RepairOptions>();
  CLI::App* command =
      AddCommand(program, "repair", "Cut off what is behind the last complete fragment",
                 "k7m repair live.k7r", options, RunRepair, chosen);
  command->add_option("FILE", options->path, "The K7R file, which is changed where it lies")
      ->type_name("")
      ->required();
}

}  // namespace qiro::k7m::tool
