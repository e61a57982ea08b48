#pragma once
// The processes running on this machine, found by name.
#include <string>
#include <vector>

namespace tw::platform {

// Processes whose name (the kernel's command name, or the file name of the program) is `name`;
// this process is never among them.
std::vector<int> ProcessesNamed(const std::string& name);

// Kills the process and, when it leads a process group other than ours, the whole group.
void KillProcessAndGroup(int pid);

}  // namespace tw::platform
