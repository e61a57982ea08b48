#include "tests/support/TestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

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
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

TWError ErrorFrom(const std::function<void()>& call) {
  try {
    call();
  } catch (const TWError& e) {
    return e;
  }
  return TWError(0, "no error");
}

size_t CountStartingWith(const std::vector<std::string>& lines, const std::string& prefix) {
  return static_cast<size_t>(
      std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.rfind(prefix, 0) == 0; }));
}

void WriteScript(const std::string& path, const std::string& body) {
  std::filesystem::remove(path);
  WriteFile(path, "#!/bin/sh\n" + body + "\n");
  ::chmod(path.c_str(), 0755);
}

bool WaitUntil(const std::function<bool()>& condition, int timeoutMs) {
  // A condition that reads a thousand report logs takes longer than the pause: pausing as long as
  // it took leaves the program under test at least half of the processor.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (std::chrono::steady_clock::now() < deadline) {
    const auto asked = std::chrono::steady_clock::now();
    if (condition()) return true;
    std::this_thread::sleep_for(std::max<std::chrono::steady_clock::duration>(
        std::chrono::milliseconds(10), std::chrono::steady_clock::now() - asked));
  }
  return condition();
}

namespace {

// This process's environment with `extra` ("NAME=value") added or replacing: built for the child
// alone, since changing our own could race with a thread of the test that reads it.
std::vector<std::string> EnvironmentWith(const std::vector<std::string>& extra) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('=') + 1);
    if (std::ranges::none_of(extra, [&](const std::string& e) { return e.starts_with(name); })) result.push_back(text);
  }
  result.insert(result.end(), extra.begin(), extra.end());
  return result;
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const auto& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::optional<int> WaitForPid(int pid, std::optional<int>& status, int timeoutMs) {
  WaitUntil([&] {
    int raw = 0;
    if (status || ::waitpid(pid, &raw, WNOHANG) != pid) return status.has_value();
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    return true;
  }, timeoutMs);
  return status;
}

void Reap(int pid, std::optional<int>& status) {
  if (WaitForPid(pid, status, 0)) return;
  ::kill(pid, SIGKILL);
  WaitForPid(pid, status, 5000);
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                           const std::string& outputFile) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  const auto env = EnvironmentWith(environment);
  auto args = Pointers(argv);
  auto envp = Pointers(env);
  const int rc = ::posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) throw std::runtime_error("cannot start " + argv[0]);
}

ChildProcess::~ChildProcess() { Reap(pid_, status_); }

void ChildProcess::Signal(int signal) { ::kill(pid_, signal); }

std::optional<int> ChildProcess::Wait(int timeoutMs) { return WaitForPid(pid_, status_, timeoutMs); }

PtySession::PtySession(const std::vector<std::string>& argv, const std::vector<std::string>& environment) {
  const auto env = EnvironmentWith(environment);
  auto args = Pointers(argv);
  auto envp = Pointers(env);
  pid_ = ::forkpty(&master_, nullptr, nullptr, nullptr);
  if (pid_ < 0) throw std::runtime_error("forkpty failed");
  if (pid_ == 0) {
    ::execve(args[0], args.data(), envp.data());
    ::_exit(127);
  }
}

PtySession::~PtySession() { ::close(master_); }

void PtySession::ReadAvailable() {
  char buffer[4096];
  for (pollfd ready{master_, POLLIN, 0}; ::poll(&ready, 1, 0) > 0;) {
    const ssize_t got = ::read(master_, buffer, sizeof buffer);
    if (got <= 0) return;
    output_.append(buffer, static_cast<size_t>(got));
  }
}

bool PtySession::WaitFor(const std::string& text, int timeoutMs) {
  return WaitUntil([&] {
    ReadAvailable();
    const size_t found = output_.find(text, consumed_);
    if (found != std::string::npos) consumed_ = found + text.size();
    return found != std::string::npos;
  }, timeoutMs);
}

void PtySession::Type(const std::string& text) {
  [[maybe_unused]] const ssize_t written = ::write(master_, text.data(), text.size());
}

std::optional<int> PtySession::Wait(int timeoutMs) {
  ReadAvailable();
  return ChildProcess::Wait(timeoutMs);
}

SmtpServer::SmtpServer(const std::vector<std::string>& options) {
  std::vector<std::string> argv{"/usr/bin/python3", TW_SOURCE_DIR "/tests/support/smtp_server.py", "--maildir",
                                dir_.Path()};
  argv.insert(argv.end(), options.begin(), options.end());
  process_ = std::make_unique<ChildProcess>(argv, std::vector<std::string>{}, dir_ / "server.out");
  std::string out;
  if (!WaitUntil([&] { return (out = ReadFile(dir_ / "server.out")).find("READY ") != std::string::npos; }, 15000)) {
    throw std::runtime_error("the SMTP server did not start: " + out);
  }
  port_ = std::atoi(out.c_str() + out.find("READY ") + 6);
}

int SmtpServer::Count() const {
  int count = 0;
  while (std::filesystem::exists(dir_ / (std::to_string(count + 1) + ".eml"))) ++count;
  return count;
}

std::string SmtpServer::Read(int number) const {
  const std::string out = dir_ / "read.json";
  const std::string command = std::string("/usr/bin/python3 ") + TW_SOURCE_DIR "/tests/support/read_mail.py " +
                              (dir_ / (std::to_string(number) + ".eml")) + " > " + out;
  if (std::system(command.c_str()) != 0) return {};
  return ReadFile(out);
}

std::string SmtpServer::Envelope(int number) const { return ReadFile(dir_ / (std::to_string(number) + ".env")); }

void MakeCertificate(const std::string& folder) {
  const std::string command = "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost "
                              "-addext subjectAltName=IP:127.0.0.1,DNS:localhost -keyout " +
                              folder + "/key.pem -out " + folder + "/cert.pem 2>/dev/null";
  if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl could not make a certificate");
}

ScopedEnvironment::ScopedEnvironment(const std::vector<std::pair<std::string, std::string>>& variables) {
  for (const auto& [name, value] : variables) {
    const char* current = std::getenv(name.c_str());
    saved_.emplace_back(name, current ? std::optional<std::string>(current) : std::nullopt);
    ::setenv(name.c_str(), value.c_str(), 1);
  }
  ::tzset();
}

ScopedEnvironment::~ScopedEnvironment() {
  for (const auto& [name, value] : saved_) {
    if (value) {
      ::setenv(name.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name.c_str());
    }
  }
  ::tzset();
}

namespace {

constexpr int kNoNamespace = 125;
constexpr int kMountFailed = 126;

[[noreturn]] void MountAndRun(const std::vector<std::pair<std::string, std::string>>& mounts,
                              const std::function<int()>& body) {
  if (::unshare(CLONE_NEWNS) != 0) ::_exit(kNoNamespace);
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ::_exit(kMountFailed);
  // Every source is held open first: a tmpfs laid over a target's parent may hide it.
  std::vector<std::string> held;
  for (const auto& [source, target] : mounts) {
    const int fd = ::open(source.c_str(), O_PATH | O_CLOEXEC);
    if (fd < 0) ::_exit(kMountFailed);
    held.push_back("/proc/self/fd/" + std::to_string(fd));
  }
  std::set<std::string> covered;
  for (size_t i = 0; i < mounts.size(); ++i) {
    const std::string& target = mounts[i].second;
    const std::string parent = std::filesystem::path(target).parent_path();
    if (covered.insert(parent).second && ::mount("tmpfs", parent.c_str(), "tmpfs", 0, "mode=0755") != 0) {
      ::_exit(kMountFailed);
    }
    // A bind mount needs a target of its source's kind: a folder for a folder, a file for the rest.
    struct stat info {};
    if (::stat(held[i].c_str(), &info) != 0 ||
        (S_ISDIR(info.st_mode) ? ::mkdir(target.c_str(), 0755) : ::mknod(target.c_str(), S_IFREG | 0644, 0)) != 0 ||
        ::mount(held[i].c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
      ::_exit(kMountFailed);
    }
  }
  ::_exit(body());
}

}  // namespace

std::optional<int> RunWithMounts(const std::vector<std::pair<std::string, std::string>>& mounts,
                                 const std::function<int()>& body) {
  const pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) MountAndRun(mounts, body);
  int raw = 0;
  ::waitpid(pid, &raw, 0);
  if (WIFEXITED(raw) && WEXITSTATUS(raw) == kNoNamespace) return std::nullopt;
  return WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
}

std::string SyslogSourceAndId(const std::string& datagram) {
  // Only the header goes through the expression (match_continuous): the text may be long.
  static const std::regex kHeader(
      R"(<\d+>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d ([^\[ ]+)\[\d+\]: Event ID (\d+)(?=$|: ))");
  std::smatch match;
  if (!std::regex_search(datagram, match, kHeader, std::regex_constants::match_continuous)) {
    return "not a syslog entry: " + datagram;
  }
  return match.str(1) + " " + match.str(2);
}

}  // namespace tw::test
