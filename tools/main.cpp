#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <new>
#include <sstream>

#include "command.h"
#include "failure.h"
#include "messages.h"
#include "output.h"

namespace qiro::k7m::tool {
namespace {

// Parses the command line. Help and version count as actions, for their text is a result as well.
Action ChooseAction(int argumentCount, char** arguments) {
  CLI::App program;
  Action chosen;
  DescribeProgram(program, chosen);
  try {
    program.parse(argumentCount, arguments);
  } catch (const CLI::ParseError& end) {
    std::ostringstream text;
    std::ostringstream problem;
    if (program.exit(end, text, problem) == 0) {
      return [result = text.str()](Output& out) {
        out.Write(result);
        return ExitCode::kOk;
      };
    }
    throw UsageFailure(end.what());
  }
  return chosen;
}

// What was found before a failure comes first. Where it cannot be written the failure is still
// told.
void FlushBeforeMessage(Output& out) {
  try {
    out.Flush();
  } catch (const OutputClosed&) {
  } catch (const Failure& failure) {
    PrintMessage(failure.what());
  }
}

ExitCode Run(int argumentCount, char** arguments, Output& out) {
  try {
    return ChooseAction(argumentCount, arguments)(out);
  } catch (const Failure& failure) {
    FlushBeforeMessage(out);
    PrintMessage(failure.what());
    return failure.Code();
  } catch (const std::bad_alloc&) {
    FlushBeforeMessage(out);
    PrintMessage("out of memory");
    return ExitCode::kFailed;
  }
}

ExitCode RunProtected(int argumentCount, char** arguments) {
  Output out(STDOUT_FILENO, "standard output");
  try {
    const ExitCode code = Run(argumentCount, arguments, out);
    out.Flush();
    return code;
  } catch (const OutputClosed&) {
    return ExitCode::kOk;
  } catch (const std::exception& problem) {
    PrintMessage(problem.what());
    return ExitCode::kFailed;
  }
}

}  // namespace
}  // namespace qiro::k7m::tool

int main(int argumentCount, char** arguments) {
  // write() reports these instead.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  return static_cast<int>(qiro::k7m::tool::RunProtected(argumentCount, arguments));
}
