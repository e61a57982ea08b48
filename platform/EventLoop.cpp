#include "platform/EventLoop.h"

#include <signal.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "common/Error.h"

namespace tw::platform {
namespace {

[[noreturn]] void Fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// Reads everything pending; true when there was something.
bool Drain(int fd, size_t size) {
  char buffer[sizeof(signalfd_siginfo)];
  bool any = false;
  while (::read(fd, buffer, size) > 0) any = true;
  return any;
}

bool Readable(int fd) {
  pollfd check{fd, POLLIN, 0};
  return ::poll(&check, 1, 0) > 0;
}

}  // namespace

EventLoop::EventLoop() {
  epoll_ = ::epoll_create1(EPOLL_CLOEXEC);
  if (epoll_ < 0) Fail("epoll_create1");
  auto source = std::make_shared<Source>();
  source->kind = Kind::Posted;
  source->fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (source->fd < 0) Fail("eventfd");
  posted_ = Register(source);
}

EventLoop::~EventLoop() {
  for (auto& [id, source] : sources_) Close(*source);
  ::close(epoll_);
}

EventLoop::SourceId EventLoop::Register(std::shared_ptr<Source> source) {
  const SourceId id = nextId_++;
  sources_[id] = source;
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = id;
  if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, source->fd, &event) != 0) Fail("epoll_ctl");
  return id;
}

void EventLoop::Arm(SourceId id, const Source& source, bool armed) {
  epoll_event event{};
  event.events = armed ? static_cast<uint32_t>(EPOLLIN) : 0u;
  event.data.u64 = id;
  ::epoll_ctl(epoll_, EPOLL_CTL_MOD, source.fd, &event);
}

void EventLoop::Close(Source& source) {
  if (source.fd < 0) return;
  ::epoll_ctl(epoll_, EPOLL_CTL_DEL, source.fd, nullptr);
  if (source.ownsFd) ::close(source.fd);
  source.fd = -1;
}

EventLoop::SourceId EventLoop::AddTimer(int intervalMs, Handler handler) {
  auto source = std::make_shared<Source>();
  source->kind = Kind::Timer;
  source->fd = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  if (source->fd < 0) Fail("timerfd_create");
  source->handler = std::move(handler);
  source->intervalMs = intervalMs;
  return Register(source);
}

void EventLoop::ArmTimer(Source& source) {
  itimerspec timing{};
  if (source.enabled && source.intervalMs > 0) {
    timing.it_interval.tv_sec = source.intervalMs / 1000;
    timing.it_interval.tv_nsec = static_cast<long>(source.intervalMs % 1000) * 1000000;
    timing.it_value = timing.it_interval;
  }
  if (::timerfd_settime(source.fd, 0, &timing, nullptr) != 0) Fail("timerfd_settime");
  Drain(source.fd, sizeof(uint64_t));  // an expiration from before does not count
}

void EventLoop::TimerEnabled(SourceId timer, bool enabled) {
  Source& source = *sources_.at(timer);
  source.enabled = enabled;
  ArmTimer(source);
}

bool EventLoop::TimerEnabled(SourceId timer) const { return sources_.at(timer)->enabled; }

void EventLoop::TimerInterval(SourceId timer, int intervalMs) {
  Source& source = *sources_.at(timer);
  source.intervalMs = intervalMs;
  if (source.enabled) ArmTimer(source);
}

int EventLoop::TimerInterval(SourceId timer) const { return sources_.at(timer)->intervalMs; }

EventLoop::SourceId EventLoop::AddSignal(int signal, Handler handler) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  if (::pthread_sigmask(SIG_BLOCK, &set, nullptr) != 0) Fail("pthread_sigmask");
  auto source = std::make_shared<Source>();
  source->kind = Kind::Signal;
  source->fd = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (source->fd < 0) Fail("signalfd");
  source->handler = std::move(handler);
  return Register(source);
}

EventLoop::SourceId EventLoop::WatchProcess(int pidfd, Handler handler) {
  auto source = std::make_shared<Source>();
  source->kind = Kind::Process;
  source->fd = pidfd;
  source->ownsFd = false;
  source->handler = std::move(handler);
  return Register(source);
}

EventLoop::SourceId EventLoop::WatchReadable(int fd, Handler handler) {
  auto source = std::make_shared<Source>();
  source->kind = Kind::Readable;
  source->fd = fd;
  source->ownsFd = false;
  source->handler = std::move(handler);
  return Register(source);
}

void EventLoop::Remove(SourceId id) {
  auto found = sources_.find(id);
  if (found == sources_.end()) return;
  found->second->removed = true;
  Close(*found->second);
  sources_.erase(found);
}

void EventLoop::Post(Handler handler) {
  {
    std::lock_guard<std::mutex> lock(postedMutex_);
    postedWork_.push_back(std::move(handler));
  }
  const uint64_t one = 1;
  const auto& source = *sources_.at(posted_);
  [[maybe_unused]] const ssize_t written = ::write(source.fd, &one, sizeof one);
}

void EventLoop::RunPosted() {
  std::vector<Handler> work;
  {
    std::lock_guard<std::mutex> lock(postedMutex_);
    work.swap(postedWork_);
  }
  for (auto& handler : work) {
    try {
      handler();
    } catch (...) {
      if (reportError_) reportError_(CurrentError("TWService").Description);
    }
  }
}

void EventLoop::Dispatch(SourceId id) {
  auto found = sources_.find(id);
  if (found == sources_.end()) return;
  std::shared_ptr<Source> source = found->second;  // kept alive if a handler removes it
  if (source->running) return;
  // A nested Pump may already have served an event of the outer wait's batch; what is no longer
  // pending is not run a second time.
  bool pending = true;
  switch (source->kind) {
    case Kind::Timer: pending = Drain(source->fd, sizeof(uint64_t)); break;
    case Kind::Signal: pending = Drain(source->fd, sizeof(signalfd_siginfo)); break;
    case Kind::Posted: Drain(source->fd, sizeof(uint64_t)); break;
    case Kind::Process:
    case Kind::Readable: pending = Readable(source->fd); break;
  }
  if (!pending) return;
  source->running = true;
  Arm(id, *source, false);
  try {
    if (source->kind == Kind::Posted) {
      RunPosted();
    } else {
      source->handler();
    }
  } catch (...) {
    if (reportError_) reportError_(CurrentError("TWService").Description);
  }
  source->running = false;
  if (source->removed) return;
  if (source->kind == Kind::Process) {
    Remove(id);  // a process ends once
  } else {
    Arm(id, *source, true);
  }
}

void EventLoop::WaitAndDispatch(int timeoutMs) {
  epoll_event events[32];
  const int ready = ::epoll_wait(epoll_, events, 32, timeoutMs);
  if (ready < 0) {
    if (errno == EINTR) return;
    Fail("epoll_wait");
  }
  for (int i = 0; i < ready; ++i) Dispatch(events[i].data.u64);
}

void EventLoop::Run() {
  quit_ = false;
  while (!quit_) WaitAndDispatch(-1);
}

void EventLoop::Quit() { quit_ = true; }

void EventLoop::Pump() { WaitAndDispatch(0); }

void EventLoop::Sleep(int milliseconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  while (true) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (left <= 0) return;
    WaitAndDispatch(static_cast<int>(left));
  }
}

void EventLoop::OnHandlerError(std::function<void(const std::string& description)> report) {
  reportError_ = std::move(report);
}

}  // namespace tw::platform
