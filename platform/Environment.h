#pragma once
// The process's surroundings: environment variables, its own location, its identity.
#include <optional>
#include <string>

namespace tw::platform {

std::optional<std::string> GetEnv(const char* name);
// The folder holding the running executable.
std::string ExecutableFolder();
// The application folder: TARNWICK_HOME when set, otherwise the executable's folder. Every
// program of the product finds its settings, logs and helpers from here.
std::string ApplicationFolder();
// TARNWICK_SETTINGS when set, otherwise <application folder>/settings.db.
std::string DefaultSettingsPath();
// The file a running service holds locked for its whole life, holding its process id:
// <application folder>/TWService.lock.
std::string ServiceLockPath(const std::string& applicationFolder);
int ProcessId();

}  // namespace tw::platform
