#pragma once
// Fakes and fixtures shared by the test suites: a private temporary folder, an event pump that
// records what a wait asked of it, a syslog receiver bound by the test, and file helpers.
#include <optional>
#include <string>
#include <vector>

#include "common/EventPump.h"

namespace tw::test {

// A fresh folder under the system's temporary folder, removed with everything in it.
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

// Records "sleep N" and "pump" in the order asked; never sleeps.
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

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);

// Sets TZ for its lifetime and restores the previous zone.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone);
  ~ScopedTimeZone();

 private:
  std::optional<std::string> saved_;
};

}  // namespace tw::test
