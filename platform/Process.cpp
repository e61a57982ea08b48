#include "platform/Process.h"

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "common/Strings.h"
#include "platform/Environment.h"
#include "platform/Spawn.h"

extern char** environ;

namespace tw::platform {
namespace {

int ExitCodeOf(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// Places `fds` at 3, 4, ... in the child. They go by way of numbers above all of them first, so
// that placing one never overwrites another that is still to be placed.
void InheritAt3(FileActions& actions, const std::vector<int>& fds) {
  int spare = 3 + static_cast<int>(fds.size());
  for (int fd : fds) spare = std::max(spare, fd + 1);
  for (size_t i = 0; i < fds.size(); ++i) {
    posix_spawn_file_actions_adddup2(actions.get(), fds[i], spare + static_cast<int>(i));
  }
  for (size_t i = 0; i < fds.size(); ++i) {
    posix_spawn_file_actions_adddup2(actions.get(), spare + static_cast<int>(i), 3 + static_cast<int>(i));
    posix_spawn_file_actions_addclose(actions.get(), spare + static_cast<int>(i));
  }
}

}  // namespace

CommandResult RunCommand(const std::vector<std::string>& argv) { return RunCommand(argv, CommandOptions{}); }

CommandResult RunCommand(const std::vector<std::string>& argv, const CommandOptions& options) {
  CommandResult result;
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
    result.error = std::generic_category().message(errno);
    return result;
  }
  FileActions actions;
  posix_spawn_file_actions_adddup2(actions.get(), pipeFds[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(actions.get(), pipeFds[1], STDERR_FILENO);
  posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  InheritAt3(actions, options.inheritedFds);
  CleanSignalAttributes signals;
  auto args = ExecPointers(argv);
  pid_t pid = 0;
  const int rc = ::posix_spawnp(&pid, args[0], actions.get(), signals.get(), args.data(), environ);
  ::close(pipeFds[1]);
  if (rc != 0) {
    ::close(pipeFds[0]);
    result.error = argv[0] + ": " + std::generic_category().message(rc);
    return result;
  }
  result.started = true;
  char buffer[4096];
  while (true) {
    const ssize_t got = ::read(pipeFds[0], buffer, sizeof buffer);
    if (got > 0) {
      result.output.append(buffer, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      break;
    }
  }
  ::close(pipeFds[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  result.exitCode = ExitCodeOf(status);
  return result;
}

bool StartDetached(const std::vector<std::string>& argv, const std::string& input) {
  const int inputFd = input.empty() ? -1 : PipeHolding(input);
  if (!input.empty() && inputFd < 0) return false;
  // The intermediate child starts the program and exits at once, so the program is adopted by
  // init and never becomes a zombie of ours.
  const pid_t child = ::fork();
  if (child < 0) {
    if (inputFd >= 0) ::close(inputFd);
    return false;
  }
  if (child == 0) {
    ::setsid();
    FileActions actions;
    if (inputFd >= 0) {
      posix_spawn_file_actions_adddup2(actions.get(), inputFd, STDIN_FILENO);
    } else {
      posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_addopen(actions.get(), STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(actions.get(), STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    CleanSignalAttributes signals;
    auto args = ExecPointers(argv);
    pid_t grandchild = 0;
    const int rc = ::posix_spawnp(&grandchild, args[0], actions.get(), signals.get(), args.data(), environ);
    ::_exit(rc == 0 ? 0 : 1);
  }
  if (inputFd >= 0) ::close(inputFd);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::optional<std::string> FindOnPath(const std::string& program) {
  if (program.find('/') != std::string::npos) {
    return ::access(program.c_str(), X_OK) == 0 ? std::optional(program) : std::nullopt;
  }
  const std::string path = GetEnv("PATH").value_or("/usr/bin:/bin");
  for (const auto& folder : Split(path, ':')) {
    const std::string candidate = (folder.empty() ? "." : folder) + "/" + program;
    struct stat info {};
    if (::stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
  }
  return std::nullopt;
}

bool IsExecutableFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

int SignalService(int pid, bool pause) {
  return ::kill(static_cast<pid_t>(pid), pause ? SIGUSR1 : SIGUSR2) == 0 ? 0 : errno;
}

bool AccountExists(const std::string& name) {
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> buffer(16384);
  return ::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr;
}

}  // namespace tw::platform
