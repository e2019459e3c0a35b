#include "command.h"

#include <charconv>
#include <optional>
#include <system_error>

#include "media_time.h"

namespace qiro::k7m::tool {

void AddFileOptions(CLI::App* command, std::string* path, uint64_t* spoolLimit) {
  command
      ->add_option("FILE", *path,
                   "The file to read: a path, an http:// or https:// address, or - for the "
                   "standard input")
      ->type_name("")
      ->required();
  command
      ->add_option("--spool-limit", *spoolLimit,
                   "How much of the standard input may be copied into a temporary file, as 500MB "
                   "or 10GiB (MB and MiB are 1,048,576 bytes); 4GiB unless given")
      ->type_name("SIZE")
      ->transform(CLI::AsSizeValue(false).description(""));  // It would stand behind SIZE.
}

void AddInputOptions(CLI::App* command, InputOptions* options) {
  AddFileOptions(command, &options->path, &options->spoolLimit);
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
