#pragma once
// What a synchronous wait needs of the service's event loop: a way to let pending events run and
// a way to let time pass. The event loop provides the real one; tests record the calls.
namespace tw {

class EventPump {
 public:
  virtual ~EventPump() = default;
  // Runs the events that are pending now, once; never enters a handler that is already running.
  virtual void Pump() = 0;
  virtual void Sleep(int milliseconds) = 0;
};

// For programs without an event loop (the console, the helper programs): nothing to pump, and
// sleeping simply blocks.
class BlockingPump final : public EventPump {
 public:
  void Pump() override {}
  void Sleep(int milliseconds) override;
};

}  // namespace tw
