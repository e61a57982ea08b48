#pragma once
// One started program: its pid, a pidfd that becomes readable when it ends, and, when asked for,
// one pipe carrying both its standard output and its standard error. The owner reads the pipe as
// data arrives, so a child never stalls on a full pipe. Children start with default signal actions,
// the service's pause and continue signals shut out.
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tw::platform {

class Subprocess {
 public:
  struct Launch {
    std::string path;               // the program file
    std::vector<std::string> argv;  // with argv[0]
    std::string workingFolder;      // empty: the current folder
    bool captureOutput = false;
    std::vector<std::pair<std::string, std::string>> environment;  // added to this process's own
    std::string input;  // what the program reads on standard input; empty: nothing (/dev/null)
  };

  // Starts the program; nullptr and the errno in `error` when it cannot be started.
  static std::unique_ptr<Subprocess> Start(const Launch& launch, int& error);
  // A program still running when its Subprocess goes is reaped later, never left a zombie.
  ~Subprocess();
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  int Pid() const { return pid_; }
  int PidFd() const { return pidfd_; }
  int OutputFd() const { return output_; }  // -1 when not capturing
  bool OutputClosed() const { return outputClosed_; }
  const std::string& Output() const { return text_; }

  // Moves what the pipe holds now into Output(); never blocks.
  void ReadAvailableOutput();
  // True, with the exit code, once the program has ended. The status is read as a signed 8-bit
  // number (255 is -1); a program ended by a signal gives 128 + the signal, read the same way.
  bool Ended(int& exitCode);
  // Waits up to `timeoutMs` for the program to end or write something.
  void WaitForActivity(int timeoutMs);
  void Kill();

 private:
  Subprocess() = default;
  int pid_ = -1;
  int pidfd_ = -1;
  int output_ = -1;
  bool reaped_ = false;
  bool outputClosed_ = false;  // every writer has gone: no more to poll for
  int exitCode_ = 0;
  std::string text_;
};

}  // namespace tw::platform
