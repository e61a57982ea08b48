#include "platform/Subprocess.h"

#include "platform/Spawn.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <mutex>
#include <string_view>

namespace tw::platform {
namespace {

// Programs whose Subprocess went while they ran; reaped as they end.
std::mutex orphansMutex;
std::vector<pid_t> orphans;

void ReapOrphans() {
  std::lock_guard<std::mutex> lock(orphansMutex);
  std::erase_if(orphans, [](pid_t pid) { return ::waitpid(pid, nullptr, WNOHANG) != 0; });
}

int ExitCodeOf(int status) {
  const int raw = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return static_cast<int8_t>(static_cast<uint8_t>(raw));
}

}  // namespace

std::unique_ptr<Subprocess> Subprocess::Start(const Launch& launch, int& error) {
  ReapOrphans();
  int pipeFds[2] = {-1, -1};
  if (launch.captureOutput && ::pipe2(pipeFds, O_CLOEXEC) != 0) {
    error = errno;
    return nullptr;
  }
  const int input = launch.input.empty() ? -1 : PipeHolding(launch.input);
  if (!launch.input.empty() && input < 0) {
    error = errno;
    if (launch.captureOutput) {
      ::close(pipeFds[0]);
      ::close(pipeFds[1]);
    }
    return nullptr;
  }
  FileActions actions;
  if (input >= 0) {
    posix_spawn_file_actions_adddup2(actions.get(), input, STDIN_FILENO);
  } else {
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  if (launch.captureOutput) {
    posix_spawn_file_actions_adddup2(actions.get(), pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(actions.get(), pipeFds[1], STDERR_FILENO);
  }
  if (!launch.workingFolder.empty()) posix_spawn_file_actions_addchdir_np(actions.get(), launch.workingFolder.c_str());
  CleanSignalAttributes attributes;

  const auto environment = EnvironmentWith(launch.environment);
  auto argv = ExecPointers(launch.argv);
  auto envp = ExecPointers(environment);
  pid_t pid = -1;
  const int rc = ::posix_spawn(&pid, launch.path.c_str(), actions.get(), attributes.get(), argv.data(), envp.data());
  if (launch.captureOutput) ::close(pipeFds[1]);
  if (input >= 0) ::close(input);
  if (rc != 0) {
    if (launch.captureOutput) ::close(pipeFds[0]);
    error = rc;
    return nullptr;
  }
  std::unique_ptr<Subprocess> process(new Subprocess());
  process->pid_ = pid;
  process->pidfd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  process->output_ = launch.captureOutput ? pipeFds[0] : -1;
  if (process->output_ >= 0) ::fcntl(process->output_, F_SETFL, O_NONBLOCK);
  return process;
}

Subprocess::~Subprocess() {
  if (!reaped_) {
    int ignored = 0;
    if (!Ended(ignored)) {
      std::lock_guard<std::mutex> lock(orphansMutex);
      orphans.push_back(pid_);
    }
  }
  if (pidfd_ >= 0) ::close(pidfd_);
  if (output_ >= 0) ::close(output_);
}

void Subprocess::ReadAvailableOutput() {
  if (output_ < 0) return;
  char buffer[16384];
  while (true) {
    const ssize_t got = ::read(output_, buffer, sizeof buffer);
    if (got > 0) {
      text_.append(buffer, static_cast<size_t>(got));
    } else if (got < 0 && errno == EINTR) {
      continue;
    } else {
      if (got == 0) outputClosed_ = true;
      return;  // nothing now, or the writers are gone
    }
  }
}

bool Subprocess::Ended(int& exitCode) {
  if (!reaped_) {
    int status = 0;
    const pid_t done = ::waitpid(pid_, &status, WNOHANG);
    if (done != pid_) return false;
    reaped_ = true;
    exitCode_ = ExitCodeOf(status);
  }
  exitCode = exitCode_;
  return true;
}

void Subprocess::WaitForActivity(int timeoutMs) {
  pollfd fds[2] = {{pidfd_, POLLIN, 0}, {output_, POLLIN, 0}};
  ::poll(fds, output_ >= 0 && !outputClosed_ ? 2 : 1, timeoutMs);
}

void Subprocess::Kill() {
  if (!reaped_) ::kill(pid_, SIGKILL);
}

}  // namespace tw::platform
