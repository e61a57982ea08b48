#include "platform/Launch.h"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace tw::platform {
namespace {

const char* kReadyVariable = "TARNWICK_READY_FD";
// A program's messages before it starts are a few lines; a flood is cut, never waited on.
constexpr size_t kMaxOutput = 65536;

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
                                const std::optional<Account>& runAs, int readyFd, int outputFd, int errors) {
  ::setsid();
  ToDevNull(STDIN_FILENO, O_RDONLY);
  ::dup2(outputFd, STDOUT_FILENO);
  ::dup2(outputFd, STDERR_FILENO);
  if (outputFd > STDERR_FILENO) ::close(outputFd);
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

// Appends what `fd` holds now; false once its writers are gone.
bool ReadSome(int fd, std::string& text) {
  char buffer[4096];
  while (true) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got > 0) {
      const size_t room = kMaxOutput - std::min(kMaxOutput, text.size());
      text.append(buffer, std::min(static_cast<size_t>(got), room));
      continue;
    }
    if (got < 0 && errno == EINTR) continue;
    return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
  }
}

// Waits for the ready byte (or the end of the ready pipe), collecting the program's output
// meanwhile. True when the program said it had started.
bool AwaitReady(int readyFd, int outputFd, std::string& output) {
  bool outputOpen = true;
  while (true) {
    pollfd fds[2] = {{readyFd, POLLIN, 0}, {outputFd, POLLIN, 0}};
    if (::poll(fds, outputOpen ? 2 : 1, -1) < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (outputOpen && fds[1].revents != 0) outputOpen = ReadSome(outputFd, output);
    if (fds[0].revents == 0) continue;
    char answer = 0;
    ssize_t got;
    while ((got = ::read(readyFd, &answer, 1)) < 0 && errno == EINTR) {
    }
    // What the program wrote before it answered or ended is in the pipe already.
    if (outputOpen) ReadSome(outputFd, output);
    return got == 1;
  }
}

}  // namespace

LaunchResult LaunchAndAwaitReady(const std::string& program, const std::vector<std::string>& arguments,
                                 const std::optional<Account>& runAs) {
  LaunchResult result;
  int ready[2], output[2], errors[2];
  if (::pipe(ready) != 0) {
    result.error = errno;
    return result;
  }
  if (::pipe(output) != 0) {
    result.error = errno;
    ::close(ready[0]);
    ::close(ready[1]);
    return result;
  }
  // The error pipe closes by itself when the program starts; the ready pipe stays with it.
  if (::pipe2(errors, O_CLOEXEC) != 0) {
    result.error = errno;
    for (int fd : {ready[0], ready[1], output[0], output[1]}) ::close(fd);
    return result;
  }
  ::fcntl(ready[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(output[0], F_SETFD, FD_CLOEXEC);
  const pid_t child = ::fork();
  if (child < 0) {
    result.error = errno;
    for (int fd : {ready[0], ready[1], output[0], output[1], errors[0], errors[1]}) ::close(fd);
    return result;
  }
  if (child == 0) BecomeProgram(program, arguments, runAs, ready[1], output[1], errors[1]);

  ::close(ready[1]);
  ::close(output[1]);
  ::close(errors[1]);
  int error = 0;
  ssize_t got;
  while ((got = ::read(errors[0], &error, sizeof error)) < 0 && errno == EINTR) {
  }
  ::close(errors[0]);
  if (got == sizeof error) {
    ::close(ready[0]);
    ::close(output[0]);
    result.error = error;
    return result;
  }
  ::fcntl(output[0], F_SETFL, O_NONBLOCK);
  const bool started = AwaitReady(ready[0], output[0], result.output);
  ::close(ready[0]);
  ::close(output[0]);
  result.outcome = started ? LaunchResult::Outcome::Ready : LaunchResult::Outcome::EndedUnready;
  return result;
}

void SignalReady() {
  const char* text = std::getenv(kReadyVariable);
  if (text == nullptr) return;
  const int fd = std::atoi(text);
  if (fd <= 2) return;
  // The launcher stops reading once it has the answer: from here on the program writes into
  // /dev/null rather than into a pipe nobody reads, which would end it with SIGPIPE.
  ToDevNull(STDOUT_FILENO, O_WRONLY);
  ToDevNull(STDERR_FILENO, O_WRONLY);
  [[maybe_unused]] const ssize_t written = ::write(fd, "R", 1);
  ::close(fd);
  ::unsetenv(kReadyVariable);
}

}  // namespace tw::platform
