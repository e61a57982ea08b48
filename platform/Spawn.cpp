#include "platform/Spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include <string_view>

extern char** environ;

namespace tw::platform {

std::vector<char*> ExecPointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const auto& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> EnvironmentWith(const std::vector<std::pair<std::string, std::string>>& extra) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    bool replaced = false;
    for (const auto& [name, value] : extra) {
      replaced = replaced || (text.size() > name.size() && text.compare(0, name.size(), name) == 0 &&
                              text[name.size()] == '=');
    }
    if (!replaced) result.emplace_back(text);
  }
  for (const auto& [name, value] : extra) result.push_back(name + "=" + value);
  return result;
}

int PipeHolding(const std::string& bytes) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return -1;
  // Written before the child exists, so a child that ends without reading cannot raise SIGPIPE here.
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = ::write(fds[1], bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      const int error = written < 0 ? errno : EIO;
      ::close(fds[0]);
      ::close(fds[1]);
      errno = error;
      return -1;
    }
    done += static_cast<size_t>(written);
  }
  ::close(fds[1]);
  return fds[0];
}

CleanSignalAttributes::CleanSignalAttributes() {
  posix_spawnattr_init(&attributes_);
  // The service's pause and continue signals are meant for its main process alone, but
  // "systemctl kill" sends them to every process of the unit by default. A child starts with them
  // blocked and keeps whether they are ignored, so a stray one can never end a backup: the product's
  // programs then ignore them (which drops one already pending), and so does what they start.
  sigset_t controls, others;
  sigemptyset(&controls);
  sigaddset(&controls, SIGUSR1);
  sigaddset(&controls, SIGUSR2);
  sigfillset(&others);
  sigdelset(&others, SIGUSR1);
  sigdelset(&others, SIGUSR2);
  posix_spawnattr_setsigmask(&attributes_, &controls);
  posix_spawnattr_setsigdefault(&attributes_, &others);
  posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

CleanSignalAttributes::~CleanSignalAttributes() { posix_spawnattr_destroy(&attributes_); }

}  // namespace tw::platform
