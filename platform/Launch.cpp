#include "platform/Launch.h"

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace tw::platform {
namespace {

const char* kReadyVariable = "TARNWICK_READY_FD";

void ToDevNull(int target, int flags) {
  const int fd = ::open("/dev/null", flags);
  if (fd >= 0 && fd != target) {
    ::dup2(fd, target);
    ::close(fd);
  }
}

// In the child: becomes the account and starts the program; reports an errno on `errors` when
// that fails. Never returns.
[[noreturn]] void BecomeProgram(const std::string& program, const std::vector<std::string>& arguments,
                                const std::optional<Account>& runAs, int readyFd, int errors) {
  ::setsid();
  ToDevNull(STDIN_FILENO, O_RDONLY);
  ToDevNull(STDOUT_FILENO, O_WRONLY);
  ToDevNull(STDERR_FILENO, O_WRONLY);
  if (runAs) {
    if (::initgroups(runAs->name.c_str(), runAs->gid) != 0 || ::setgid(runAs->gid) != 0 ||
        ::setuid(runAs->uid) != 0) {
      const int error = errno;
      [[maybe_unused]] const ssize_t written = ::write(errors, &error, sizeof error);
      ::_exit(127);
    }
    ::setenv("HOME", runAs->home.c_str(), 1);
    ::setenv("USER", runAs->name.c_str(), 1);
    ::setenv("LOGNAME", runAs->name.c_str(), 1);
  }
  ::setenv(kReadyVariable, std::to_string(readyFd).c_str(), 1);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  ::execv(program.c_str(), argv.data());
  const int error = errno;
  [[maybe_unused]] const ssize_t written = ::write(errors, &error, sizeof error);
  ::_exit(127);
}

}  // namespace

LaunchResult LaunchAndAwaitReady(const std::string& program, const std::vector<std::string>& arguments,
                                 const std::optional<Account>& runAs) {
  LaunchResult result;
  int ready[2], errors[2];
  if (::pipe(ready) != 0) {
    result.error = errno;
    return result;
  }
  // The error pipe closes by itself when the program starts; the ready pipe stays with it.
  if (::pipe2(errors, O_CLOEXEC) != 0) {
    result.error = errno;
    ::close(ready[0]);
    ::close(ready[1]);
    return result;
  }
  ::fcntl(ready[0], F_SETFD, FD_CLOEXEC);
  const pid_t child = ::fork();
  if (child < 0) {
    result.error = errno;
    for (int fd : {ready[0], ready[1], errors[0], errors[1]}) ::close(fd);
    return result;
  }
  if (child == 0) BecomeProgram(program, arguments, runAs, ready[1], errors[1]);

  ::close(ready[1]);
  ::close(errors[1]);
  int error = 0;
  ssize_t got;
  while ((got = ::read(errors[0], &error, sizeof error)) < 0 && errno == EINTR) {
  }
  ::close(errors[0]);
  if (got == sizeof error) {
    ::close(ready[0]);
    result.error = error;
    return result;
  }
  char answer = 0;
  while ((got = ::read(ready[0], &answer, 1)) < 0 && errno == EINTR) {
  }
  ::close(ready[0]);
  result.outcome = got == 1 ? LaunchResult::Outcome::Ready : LaunchResult::Outcome::EndedUnready;
  return result;
}

void SignalReady() {
  const char* text = std::getenv(kReadyVariable);
  if (text == nullptr) return;
  const int fd = std::atoi(text);
  if (fd <= 2) return;
  [[maybe_unused]] const ssize_t written = ::write(fd, "R", 1);
  ::close(fd);
  ::unsetenv(kReadyVariable);
}

}  // namespace tw::platform
