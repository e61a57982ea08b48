#include "platform/Environment.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace tw::platform {

std::optional<std::string> GetEnv(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

std::string ExecutableFolder() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return std::filesystem::current_path(error).string();
  return path.parent_path().string();
}

std::string ApplicationFolder() {
  if (auto home = GetEnv("TARNWICK_HOME")) {
    std::string folder = *home;
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return folder;
  }
  return ExecutableFolder();
}

std::string DefaultSettingsPath() {
  if (auto path = GetEnv("TARNWICK_SETTINGS")) return *path;
  return ApplicationFolder() + "/settings.db";
}

std::string ServiceLockPath(const std::string& applicationFolder) { return applicationFolder + "/TWService.lock"; }

int ProcessId() { return static_cast<int>(::getpid()); }

}  // namespace tw::platform
