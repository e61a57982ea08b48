#include "common/EventPump.h"

#include <chrono>
#include <thread>

namespace tw {

void BlockingPump::Sleep(int milliseconds) {
  if (milliseconds > 0) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace tw
