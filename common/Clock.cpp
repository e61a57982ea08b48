#include "common/Clock.h"

#include <chrono>

namespace tw {

Date SystemClock::Now() const {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
  const auto nanos = std::chrono::duration_cast<std::chrono::nanoseconds>(since - seconds);
  return DateFromUnix(static_cast<std::time_t>(seconds.count()), static_cast<long>(nanos.count()));
}

}  // namespace tw
