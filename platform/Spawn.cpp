#include "platform/Spawn.h"

#include <signal.h>

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

CleanSignalAttributes::CleanSignalAttributes() {
  posix_spawnattr_init(&attributes_);
  sigset_t empty, all;
  sigemptyset(&empty);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes_, &empty);
  posix_spawnattr_setsigdefault(&attributes_, &all);
  posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

CleanSignalAttributes::~CleanSignalAttributes() { posix_spawnattr_destroy(&attributes_); }

}  // namespace tw::platform
