#pragma once
// What every way of starting a program here shares (internal to platform/): argument vectors for
// exec, the environment with additions, and spawn attributes that give the child default signal
// actions, whatever the service took over for its event loop, except for the service's pause and
// continue signals, which stay blocked and, where ignored, ignored.
#include <spawn.h>

#include <string>
#include <utility>
#include <vector>

namespace tw::platform {

// Pointers into `texts`, ended by a null, as exec wants them. `texts` must outlive the result.
std::vector<char*> ExecPointers(const std::vector<std::string>& texts);

// This process's environment with `extra` added, replacing variables of the same names.
std::vector<std::string> EnvironmentWith(const std::vector<std::pair<std::string, std::string>>& extra);

// The read end of a pipe that already holds `bytes` and whose write end is closed: a child reads
// them on its standard input, then end of file. Nothing but that child can read them, unlike a
// command line or the environment. `bytes` must fit in the pipe (64 KiB); -1 and errno on failure.
int PipeHolding(const std::string& bytes);

class CleanSignalAttributes {
 public:
  CleanSignalAttributes();
  ~CleanSignalAttributes();
  CleanSignalAttributes(const CleanSignalAttributes&) = delete;
  CleanSignalAttributes& operator=(const CleanSignalAttributes&) = delete;
  posix_spawnattr_t* get() { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

class FileActions {
 public:
  FileActions() { posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

}  // namespace tw::platform
