#include "run_program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace k7mtest {
namespace {

// Deletes itself when it is closed.
using Capture = std::unique_ptr<FILE, int (*)(FILE*)>;

Capture MakeCapture() {
  Capture capture(std::tmpfile(), std::fclose);
  if (!capture) throw std::runtime_error("no temporary file");
  return capture;
}

std::string Content(FILE* file) {
  std::string text;
  std::rewind(file);
  char buffer[4096];
  for (size_t count; (count = std::fread(buffer, 1, sizeof buffer, file)) > 0;) {
    text.append(buffer, count);
  }
  return text;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const RunResult& result) {
  return out << "exit code " << result.exitCode << "\nstandard output:\n"
             << result.out << "\nstandard error:\n"
             << result.err;
}

pid_t StartK7m(const std::vector<std::string>& arguments, int out, int err,
               const std::string& folder) {
  std::vector<std::string> words = {K7M_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const pid_t process = fork();
  if (process < 0) throw std::runtime_error("fork failed");
  if (process > 0) return process;
  if ((folder.empty() || chdir(folder.c_str()) == 0) && dup2(out, STDOUT_FILENO) >= 0 &&
      dup2(err, STDERR_FILENO) >= 0) {
    execv(K7M_PROGRAM, pointers.data());
  }
  _exit(127);
}

int WaitFor(pid_t process) {
  int status = 0;
  if (waitpid(process, &status, 0) != process) throw std::runtime_error("waitpid failed");
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

RunResult RunK7m(const std::vector<std::string>& arguments, const RunOptions& options) {
  const Capture out = MakeCapture();
  const Capture err = MakeCapture();
  int outDescriptor = fileno(out.get());
  if (!options.stdoutPath.empty()) {
    outDescriptor = open(options.stdoutPath.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (outDescriptor < 0) throw std::runtime_error("cannot open " + options.stdoutPath);
  }
  RunResult result;
  result.exitCode = WaitFor(StartK7m(arguments, outDescriptor, fileno(err.get()), options.folder));
  if (!options.stdoutPath.empty()) close(outDescriptor);
  result.out = Content(out.get());
  result.err = Content(err.get());
  // Their exit code could be one that the test expects.
  for (const char* trace : {"Sanitizer", "runtime error:"}) {
    if (result.err.find(trace) != std::string::npos) throw std::runtime_error(result.err);
  }
  return result;
}

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "k7m-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::Write(const std::string& name, const Bytes& bytes) const {
  std::ofstream file(path_ / name, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.Data()),
             static_cast<std::streamsize>(bytes.Size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + name);
  return Path(name);
}

std::vector<std::string> TemporaryFolder::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path_)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

Bytes ReadBytes(const std::string& path) { return Bytes().Text(ReadText(path)); }

}  // namespace k7mtest
