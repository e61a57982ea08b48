#pragma once
// Fakes, fixtures and helpers shared by the test suites.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/Error.h"
#include "common/EventPump.h"

namespace tw::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

class RecordingPump final : public EventPump {
 public:
  void Pump() override { calls.push_back("pump"); }
  void Sleep(int milliseconds) override { calls.push_back("sleep " + std::to_string(milliseconds)); }
  std::vector<std::string> calls;
};

// A Unix datagram socket that a test binds in place of the system log.
class DatagramReceiver {
 public:
  explicit DatagramReceiver(const std::string& path);
  ~DatagramReceiver();
  DatagramReceiver(const DatagramReceiver&) = delete;
  DatagramReceiver& operator=(const DatagramReceiver&) = delete;
  // The next datagram, or nothing after `timeoutMs`.
  std::optional<std::string> Receive(int timeoutMs = 2000);

 private:
  int fd_ = -1;
  std::string path_;
};

// "SOURCE ID" of a syslog datagram "<PRI>Mmm dd hh:mm:ss SOURCE[PID]: Event ID ID[: TEXT]": which
// source wrote which event. Anything else comes back whole after "not a syslog entry: ".
std::string SyslogSourceAndId(const std::string& datagram);

// Runs `body` in a forked child with a mount namespace of its own, each source (a folder or a socket)
// bind-mounted on its target over a fresh tmpfs, so that the host stays untouched. The result is the
// child's exit status (125 and 126: the setup failed); nothing when no namespace may be had.
std::optional<int> RunWithMounts(const std::vector<std::pair<std::string, std::string>>& mounts,
                                 const std::function<int()>& body);

// The error `call` throws: number 0, "no error", when it throws none.
TWError ErrorFrom(const std::function<void()>& call);

size_t CountStartingWith(const std::vector<std::string>& lines, const std::string& prefix);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
// Writes an executable shell script: "#!/bin/sh" and `body`, in place of whatever was at `path`.
void WriteScript(const std::string& path, const std::string& body);

// Polls `condition` every 10 ms, or as often as it takes; false when it has not held within `timeoutMs`.
bool WaitUntil(const std::function<bool()>& condition, int timeoutMs = 5000);

// A program a test starts, with extra environment variables ("NAME=value"), and then signals and
// waits for. Killed if it is still running when the object goes.
class ChildProcess {
 public:
  ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {},
               const std::string& outputFile = "/dev/null");
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  int Pid() const { return pid_; }
  void Signal(int signal);
  // The exit status (128 + the signal for a killed one), or nothing after `timeoutMs`.
  std::optional<int> Wait(int timeoutMs = 5000);

 protected:
  ChildProcess() = default;
  int pid_ = -1;

 private:
  std::optional<int> status_;
};

// A program on a pseudo-terminal, driven as a person at a terminal would.
class PtySession : public ChildProcess {
 public:
  PtySession(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {});
  ~PtySession();
  // Reads until `text` has appeared after what earlier calls consumed; false after `timeoutMs`.
  bool WaitFor(const std::string& text, int timeoutMs = 5000);
  void Type(const std::string& text);
  const std::string& Output() const { return output_; }
  std::optional<int> Wait(int timeoutMs = 5000);

 private:
  void ReadAvailable();
  int master_ = -1;
  std::string output_;
  size_t consumed_ = 0;
};

// A real SMTP server (tests/support/smtp_server.py on aiosmtpd) on a loopback port. `options` are its
// command-line options (--cert, --user, --reject, --silent ...). Messages land in Maildir().
class SmtpServer {
 public:
  explicit SmtpServer(const std::vector<std::string>& options = {});
  int Port() const { return port_; }
  std::string Maildir() const { return dir_.Path(); }
  // The stored messages' count, and one as a mail client reads it (JSON from read_mail.py).
  int Count() const;
  std::string Read(int number) const;
  std::string Envelope(int number) const;

 private:
  TempDir dir_;
  std::unique_ptr<ChildProcess> process_;
  int port_ = 0;
};

// A self-signed certificate for 127.0.0.1 and localhost: <folder>/cert.pem and <folder>/key.pem.
void MakeCertificate(const std::string& folder);

// Sets environment variables for its lifetime; the C library reads TZ again each time.
class ScopedEnvironment {
 public:
  explicit ScopedEnvironment(const std::vector<std::pair<std::string, std::string>>& variables);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace tw::test
