/// `k7m tree`: every box of a file, as far as it can be read.
#include <limits>

#include "command.h"
#include "tree_form.h"
#include "tree_walk.h"

namespace qiro::k7m::tool {
namespace {

constexpr uint64_t kUsualTableLimit = 16;

struct TreeOptions {
  InputOptions input;
  bool asJson = false;
  bool showsAll = false;
};

void RunTree(const TreeOptions& options, Output& out) {
  FileStream file(OpenInput(options.input.path, options.input.spoolLimit));
  Warnings warnings(file.Path(), options.input.isStrict);
  const std::unique_ptr<TreeForm> form = MakeTreeForm(options.asJson, out);
  const TreeResult result =
      WalkTree(file, warnings,
               options.showsAll ? std::numeric_limits<uint64_t>::max() : kUsualTableLimit, *form);
  form->End();
  if (result.firstProblem) {
    std::string message =
        "offset " + std::to_string(result.firstProblem->offset) + ": " + result.firstProblem->text;
    if (result.problemCount > 1) {
      message += " (and " + std::to_string(result.problemCount - 1) + " more, see the tree)";
    }
    throw FileFailure(file.Path(), message);
  }
  if (result.boxCount == 0) throw FileFailure(file.Path(), "no boxes");
}

}  // namespace

void AddTreeCommand(CLI::App& program, Action& chosen) {
  const auto options = std::make_shared<TreeOptions>();
  CLI::App* command = AddCommand(program, "tree", "Show the boxes, also those of a broken file",
                                 "k7m tree clip.mp4 --all", options, RunTree, chosen);
  AddInputOptions(command, &options->input);
  command->add_flag("--json", options->asJson, "Print JSON");
  command->add_flag("--all", options->showsAll, "Show long tables and byte fields in full");
}

}  // namespace qiro::k7m::tool
