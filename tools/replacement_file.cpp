#include "replacement_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "failure.h"

namespace qiro::k7m::tool {
namespace {

constexpr std::array<int, 3> kEndingSignals = {SIGINT, SIGTERM, SIGHUP};

// For the signal handler, which may use nothing but plain memory and a few system calls.
char temporaryPath[4096];

extern "C" void RemoveTemporaryAndEnd(int signalNumber) {
  if (temporaryPath[0] != '\0') unlink(temporaryPath);
  raise(signalNumber);  // The default action is back: see SA_RESETHAND.
}

// Keeps these signals waiting while a temporary file is made: it must not exist unguarded.
class SignalsHeldBack {
 public:
  SignalsHeldBack() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signalNumber : kEndingSignals) sigaddset(&ending, signalNumber);
    sigprocmask(SIG_BLOCK, &ending, &usual_);
  }
  ~SignalsHeldBack() { sigprocmask(SIG_SETMASK, &usual_, nullptr); }
  SignalsHeldBack(const SignalsHeldBack&) = delete;
  SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

 private:
  sigset_t usual_{};
};

void GuardTemporary(const std::string& path) {
  if (path.size() >= sizeof temporaryPath) return;
  std::memcpy(temporaryPath, path.c_str(), path.size() + 1);
  struct sigaction action {};
  action.sa_handler = RemoveTemporaryAndEnd;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signalNumber : kEndingSignals) {
    struct sigaction old {};
    sigaction(signalNumber, nullptr, &old);
    // Whoever had the program ignore a signal (nohup) meant it.
    if (old.sa_handler != SIG_IGN) sigaction(signalNumber, &action, nullptr);
  }
}

// The mode of a file made by creat(): what the user's mask leaves of rw-rw-rw-.
mode_t NewFileMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Follows symbolic links, so that the file behind a link is replaced and not the link.
std::string ResolvedPath(const std::string& path) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) return path;
  std::string result = resolved;
  std::free(resolved);
  return result;
}

}  // namespace

ReplacementFile::ReplacementFile(const std::string& path, Target target)
    : name_(path), target_(path), rule_(target) {
  struct stat status {};
  const bool isThere = stat(path.c_str(), &status) == 0;
  if (isThere && S_ISDIR(status.st_mode)) throw SystemFailure(name_, EISDIR);
  if (isThere && !S_ISREG(status.st_mode)) throw FileFailure(name_, "not a regular file");
  if (isThere && rule_ == Target::kMustBeNew) FailAsTaken(name_);
  if (isThere) target_ = ResolvedPath(path);
  std::string temporary = target_ + ".XXXXXX";
  const SignalsHeldBack signalsHeldBack;
  descriptor_ = mkstemp(temporary.data());
  if (descriptor_ < 0) throw SystemFailure(name_, errno);
  temporary_ = temporary;
  GuardTemporary(temporary_);
  // Some file systems have no modes; the content matters more.
  fchmod(descriptor_, isThere ? status.st_mode & 07777 : NewFileMode());
}

ReplacementFile::~ReplacementFile() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
  temporaryPath[0] = '\0';
}

void ReplacementFile::Commit() {
  CloseChecked();
  Rename();
  temporary_.clear();
  temporaryPath[0] = '\0';
}

void ReplacementFile::CloseChecked() {
  const int descriptor = descriptor_;
  descriptor_ = -1;
  if (close(descriptor) != 0) throw SystemFailure(name_, errno);
}

void ReplacementFile::Rename() {
  const char* from = temporary_.c_str();
  const char* to = target_.c_str();
  if (rule_ == Target::kMustBeNew) {
    // Somebody else may have taken the name in the meantime.
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return;
    if (errno == EEXIST) FailAsTaken(name_);
    if (errno != EINVAL && errno != ENOSYS) throw SystemFailure(name_, errno);
    // The file system cannot do that at once.
    if (access(to, F_OK) == 0) FailAsTaken(name_);
  }
  if (rename(from, to) != 0) throw SystemFailure(name_, errno);
}

void FailAsTaken(const std::string& path) {
  throw FileFailure(path, "there is such a file already (--force replaces it)");
}

}  // namespace qiro::k7m::tool
