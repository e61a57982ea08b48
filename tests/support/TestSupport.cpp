#include "tests/support/TestSupport.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tw::test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "tarnwick-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

DatagramReceiver::DatagramReceiver(const std::string& path) : path_(path) {
  fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot bind " + path);
  }
}

DatagramReceiver::~DatagramReceiver() {
  ::close(fd_);
  ::unlink(path_.c_str());
}

std::optional<std::string> DatagramReceiver::Receive(int timeoutMs) {
  pollfd ready{fd_, POLLIN, 0};
  if (::poll(&ready, 1, timeoutMs) <= 0) return std::nullopt;
  std::string buffer(256 * 1024, '\0');
  const ssize_t got = ::recv(fd_, buffer.data(), buffer.size(), 0);
  if (got < 0) return std::nullopt;
  buffer.resize(static_cast<size_t>(got));
  return buffer;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

ScopedTimeZone::ScopedTimeZone(const char* zone) {
  if (const char* current = std::getenv("TZ")) saved_ = current;
  ::setenv("TZ", zone, 1);
  ::tzset();
}

ScopedTimeZone::~ScopedTimeZone() {
  if (saved_) {
    ::setenv("TZ", saved_->c_str(), 1);
  } else {
    ::unsetenv("TZ");
  }
  ::tzset();
}

}  // namespace tw::test
