#include "pages/model.h"

#include <algorithm>
#include <set>
#include <string_view>

namespace qiro::k7m::tool {
namespace {

std::vector<std::string> NamesOf(const std::set<CLI::Option*>& options) {
  std::vector<std::string> names;
  names.reserve(options.size());
  for (const CLI::Option* option : options) names.push_back(option->get_name());
  std::sort(names.begin(), names.end());  // The set is ordered by address.
  return names;
}

OptionText TextOf(const CLI::Option& option) {
  OptionText text;
  for (const std::string& name : option.get_snames()) text.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) text.names.push_back("--" + name);
  text.purpose = option.get_description();
  text.isRequired = option.get_required();
  text.takesMany = option.get_items_expected_max() > 1;
  text.excludes = NamesOf(option.get_excludes());
  text.needs = NamesOf(option.get_needs());
  if (option.get_positional()) {
    text.value = option.get_name(true);
    text.namesFile = true;
  } else if (option.get_items_expected_min() > 0) {
    text.value = option.get_type_name();
    const std::set<std::string_view> files = {"FILE", "IDX", "OUT", "PACKET"};
    text.namesFile = files.count(text.value) > 0;
  }
  return text;
}

CommandText CommandOf(const CLI::App& command) {
  CommandText text;
  text.purpose = command.get_description();
  const std::string footer = command.get_footer();
  const std::string_view title = "Example:\n  ";
  if (footer.compare(0, title.size(), title) == 0) text.example = footer.substr(title.size());
  for (const CLI::Option* option : command.get_options()) {
    (option->get_positional() ? text.positionals : text.options).push_back(TextOf(*option));
  }
  return text;
}

}  // namespace

ProgramText TextOf(const CLI::App& program) {
  ProgramText text;
  text.program = CommandOf(program);
  for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
    text.commands.push_back(CommandOf(*command));
    text.commands.back().name = command->get_name();
  }
  return text;
}

}  // namespace qiro::k7m::tool
