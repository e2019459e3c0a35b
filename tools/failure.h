/// @file failure.h
/// Why a command ends early. Failures are thrown anywhere below main(), which prints the message
/// and returns the exit code.
#pragma once

#include <k7m/k7m.h>

#include <stdexcept>
#include <string>

namespace qiro::k7m::tool {

/// What the program answers to the shell.
enum class ExitCode {
  kOk = 0,
  kFailed = 1,    ///< The file, the system or the library refused.
  kUsage = 2,     ///< The command line makes no sense.
  kWarnings = 3,  ///< Nothing failed, but there is something to be warned of.
};

/// Ends the command with a message. The message is complete but for the leading program name.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message, ExitCode code = ExitCode::kFailed)
      : std::runtime_error(message), code_(code) {}
  ExitCode Code() const { return code_; }

 private:
  ExitCode code_;
};

/// Whoever reads the standard output has left: the command ends quietly, as a success.
class OutputClosed {};

/// "clip.mp4: message"
Failure FileFailure(const std::string& path, const std::string& message);
/// "No such file or directory"; `errorNumber` is an errno value.
std::string SystemMessage(int errorNumber);
/// "clip.mp4: No such file or directory"
Failure SystemFailure(const std::string& path, int errorNumber);
/// "clip.mp4: kQiroK7MErrorNoMovieBox (6): no 'moov' box where one is required"
Failure LibraryFailure(const std::string& path, QiroK7MError code);
/// The name, number and meaning of a result or warning code, as in LibraryFailure().
std::string DescribeCode(QiroK7MError code);

}  // namespace qiro::k7m::tool
