#pragma once
// Where every "now" of the system comes from. The service reads the system clock; tests move a
// manual clock by hand, so schedules and time-outs are checked without sleeping.
#include "common/Date.h"

namespace tw {

class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date Now() const = 0;
};

// Local wall-clock time of the machine, to the microsecond.
class SystemClock final : public Clock {
 public:
  Date Now() const override;
};

class ManualClock final : public Clock {
 public:
  explicit ManualClock(Date start) : now_(start) {}
  Date Now() const override { return now_; }
  void Set(Date value) { now_ = value; }
  void AdvanceSeconds(double seconds) { now_ += seconds / kSecondsPerDay; }

 private:
  Date now_;
};

}  // namespace tw
