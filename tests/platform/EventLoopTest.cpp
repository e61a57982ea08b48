#include "platform/EventLoop.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace tw::platform {
namespace {

TEST(EventLoopTest, AHandlerIsNeverReenteredAndOneThatThrowsIsReported) {
  EventLoop loop;
  int depth = 0, deepest = 0, slowRuns = 0, otherRuns = 0;
  const auto slow = loop.AddTimer(5, [&] {
    ++slowRuns;
    deepest = std::max(deepest, ++depth);
    loop.Sleep(60);  // a synchronous wait inside the handler, as the service's steps have
    loop.Pump();
    --depth;
  });
  const auto other = loop.AddTimer(5, [&] { ++otherRuns; });
  loop.TimerEnabled(slow, true);
  loop.TimerEnabled(other, true);
  loop.Sleep(150);
  EXPECT_EQ(1, deepest) << "the slow handler was entered again while it ran";
  EXPECT_GE(otherRuns, 5) << "other handlers run during the nested wait";
  // Expirations missed while it ran are run once, not piled up: about one run per 60 ms, where
  // piling up would give one per 5 ms.
  EXPECT_LE(slowRuns, 4);
  loop.Remove(slow);
  loop.Remove(other);

  // Two events ready in one wait, each handler pumping: whichever runs first serves the other
  // inside its pump, and the outer wait must not run that one a second time.
  int timerRuns = 0, signalRuns = 0;
  const EventLoop::SourceId timer = loop.AddTimer(1, [&] {
    ++timerRuns;
    loop.TimerEnabled(timer, false);
    loop.Pump();
  });
  loop.AddSignal(SIGUSR2, [&] {
    ++signalRuns;
    loop.Pump();
  });
  loop.TimerEnabled(timer, true);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ::kill(::getpid(), SIGUSR2);
  loop.Pump();
  EXPECT_EQ(1, timerRuns);
  EXPECT_EQ(1, signalRuns);

  // A handler that throws is reported, and the loop goes on with the next one.
  std::string reported;
  loop.OnHandlerError([&](const std::string& what) { reported = what; });
  int after = 0;
  loop.Post([] { throw std::runtime_error("disk on fire"); });
  loop.Post([&] { ++after; });
  loop.Pump();
  EXPECT_EQ("disk on fire", reported);
  EXPECT_EQ(1, after);
}

}  // namespace
}  // namespace tw::platform
