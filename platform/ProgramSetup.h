#pragma once
// What every program of the product does first, before it creates a file or starts another program.
namespace tw::platform {

// Files and folders the program creates from now on are private to its account (0600, 0700),
// whatever umask it was started with: archives, logs and reports hold what others must not read.
void MakeCreatedFilesPrivate();

// The service is paused and continued with SIGUSR1 and SIGUSR2 to its main process, but
// "systemctl kill" without --kill-whom=main sends them to every process of the unit. The helper
// programs, and what they start (tar, gzip), ignore them, so a stray one never ends a backup.
void IgnoreServiceControlSignals();

}  // namespace tw::platform
