#include "command.h"

#include <charconv>
#include <optional>
#include <system_error>

#include "media_time.h"

namespace qiro::k7m::tool {

void AddInputOptions(CLI::App* command, InputOptions* options) {
  command->add_option("FILE", options->path, "The file to read")->type_name("")->required();
  command->add_flag("--strict", options->isStrict, "Fail at the first warning");
}

std::string CheckNumber(const std::string& text) {
  uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, problem] = std::from_chars(text.data(), end, number);
  if (problem != std::errc() || rest != end) return "not a number: " + text;
  return number == 0 ? "they are counted from 1" : "";
}

std::string CheckFragmentLength(const std::string& text) {
  const std::optional<MediaTime> length = ParseSeconds(text);
  if (!length) return "not a number of seconds: " + text;
  return length->value == 0 ? "a fragment must have a length" : "";
}

Failure UsageFailure(const std::string& message) {
  return Failure(message + " (see k7m --help)", ExitCode::kUsage);
}

}  // namespace qiro::k7m::tool
