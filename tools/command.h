/// @file command.h
/// The commands of the program. Each stands in a file of its own and offers one function, which
/// describes its options and says what to run when the user names the command.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

#include "document.h"
#include "output.h"

namespace qiro::k7m::tool {

/// The work of a command; returns what the program answers. Results go to the output, everything
/// else to the standard error.
using Action = std::function<ExitCode(Output&)>;

/// Describes the program and all its commands. What the user named ends up in `chosen`.
void DescribeProgram(CLI::App& program, Action& chosen);

void AddInfoCommand(CLI::App& program, Action& chosen);
void AddTreeCommand(CLI::App& program, Action& chosen);
void AddSamplesCommand(CLI::App& program, Action& chosen);
void AddExtractCommand(CLI::App& program, Action& chosen);
void AddRemuxCommand(CLI::App& program, Action& chosen);
void AddIndexCommand(CLI::App& program, Action& chosen);
void AddQueryCommand(CLI::App& program, Action& chosen);
void AddFragmentCommand(CLI::App& program, Action& chosen);
void AddRepairCommand(CLI::App& program, Action& chosen);
void AddAppendCommand(CLI::App& program, Action& chosen);
void AddVerifyCommand(CLI::App& program, Action& chosen);

/// Adds a command whose options are kept in an `Options` record, and has `run` chosen when the user
/// names it.
/// @param run      returns an exit code, or nothing where every end but a failure is a success
/// @param example  a command line, shown at the end of the command's help
template <class Options, class Result>
CLI::App* AddCommand(CLI::App& program, const std::string& name, const std::string& purpose,
                     const std::string& example, const std::shared_ptr<Options>& options,
                     Result (*run)(const Options&, Output&), Action& chosen) {
  CLI::App* command = program.add_subcommand(name, purpose);
  command->footer("Example:\n  " + example);
  command->callback([options, run, &chosen] {
    chosen = [options, run](Output& out) {
      if constexpr (std::is_void_v<Result>) {
        run(*options, out);
        return ExitCode::kOk;
      } else {
        return run(*options, out);
      }
    };
  });
  return command;
}

/// FILE and --spool-limit, for commands that read an input once.
void AddFileOptions(CLI::App* command, std::string* path, uint64_t* spoolLimit);

/// The same and --strict.
void AddInputOptions(CLI::App* command, InputOptions* options);

/// For options that name one of several things by its number. Says what is wrong with the text, or
/// nothing.
std::string CheckNumber(const std::string& text);

/// For the least length of fragments in seconds. Says what is wrong with the text, or nothing.
std::string CheckFragmentLength(const std::string& text);

/// Turns a failure that the user alone can mend into one; for checks that CLI11 cannot express.
Failure UsageFailure(const std::string& message);

}  // namespace qiro::k7m::tool
