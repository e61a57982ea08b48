#pragma once
// The service's one event loop: timers, signals, process ends and work posted by other threads, all
// run on the thread that runs the loop. Handlers may wait in place (Pump, Sleep), as the service's
// synchronous steps do; while a handler runs, its own source is set aside, so it is never entered
// again meanwhile, and a wait never spins on it.
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/EventPump.h"

namespace tw::platform {

class EventLoop final : public EventPump {
 public:
  using Handler = std::function<void()>;
  using SourceId = uint64_t;

  EventLoop();
  ~EventLoop() override;
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // A periodic timer, created switched off. Switching it on (or changing its interval while on)
  // starts the interval afresh. Expirations missed while its handler ran are run once, not
  // several times: a slow tick delays the next instead of piling up.
  SourceId AddTimer(int intervalMs, Handler handler);
  void TimerEnabled(SourceId timer, bool enabled);
  bool TimerEnabled(SourceId timer) const;
  void TimerInterval(SourceId timer, int intervalMs);
  int TimerInterval(SourceId timer) const;

  // Delivers `signal` here instead of its default action. The signal is blocked in the calling
  // thread, so add signals before starting other threads; child processes get a clean mask.
  SourceId AddSignal(int signal, Handler handler);

  // Calls `handler` once when the process behind `pidfd` has ended. The caller keeps the fd.
  SourceId WatchProcess(int pidfd, Handler handler);

  // Calls `handler` whenever `fd` has data (or has been closed at the other end); the handler
  // must read it. The caller keeps the fd and removes the watch before closing it.
  SourceId WatchReadable(int fd, Handler handler);

  void Remove(SourceId source);

  // From any thread: runs `handler` on the loop's thread.
  void Post(Handler handler);

  // Runs until Quit is called.
  void Run();
  void Quit();
  // Runs what is ready now, once.
  void Pump() override;
  // Runs events as they come for `milliseconds`.
  void Sleep(int milliseconds) override;

  // Receives what a handler threw; without it the error is dropped. The loop never stops for one.
  void OnHandlerError(std::function<void(const std::string& description)> report);

 private:
  enum class Kind { Timer, Signal, Process, Readable, Posted };
  struct Source {
    Kind kind;
    int fd = -1;
    bool ownsFd = true;
    Handler handler;
    bool running = false;
    bool removed = false;
    bool enabled = false;  // timers
    int intervalMs = 0;    // timers
  };

  SourceId Register(std::shared_ptr<Source> source);
  void Arm(SourceId id, const Source& source, bool armed);
  void ArmTimer(Source& source);
  // Waits up to `timeoutMs` (-1: for ever) and runs what became ready.
  void WaitAndDispatch(int timeoutMs);
  void Dispatch(SourceId id);
  void Close(Source& source);
  void RunPosted();

  int epoll_ = -1;
  bool quit_ = false;
  SourceId nextId_ = 1;
  std::map<SourceId, std::shared_ptr<Source>> sources_;
  SourceId posted_ = 0;
  std::mutex postedMutex_;
  std::vector<Handler> postedWork_;
  std::function<void(const std::string&)> reportError_;
};

}  // namespace tw::platform
