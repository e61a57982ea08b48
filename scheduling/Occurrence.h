#pragma once
// Occurrences: points in the calendar at which something is to happen, such as every Monday and
// Friday at 21:00, the last Friday of each month, or three given dates. The settings store keeps
// them as occurrence strings ("1|0.875|0,-1,0,0,0,-1,0"); the factory turns a string back into an
// object that tells whether a moment matches. Matching has one-minute resolution.
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/Date.h"

namespace tw {

class IOccurrence {
 public:
  virtual ~IOccurrence() = default;
  // Which parts are meaningful, for TextSummary only: 0 the day part, 1 the time part, 2 both.
  virtual int32_t OccurrenceType() const = 0;
  virtual void OccurrenceType(int32_t value) = 0;
  // 0 specific dates, 1 weekly, 2 monthly.
  virtual int32_t OccurrenceRepetition() const = 0;
  virtual bool MatchDayAndTime(Date when) const = 0;
  virtual bool MatchDay(Date when) const = 0;
  virtual bool MatchTime(Date when) const = 0;
  virtual std::string GetString() const = 0;
  // Takes a string of this class's kind and returns true; returns false for another kind and
  // changes nothing. Raises Subscript out of range (9) or Type mismatch (13) on malformed content,
  // leaving the fields read so far assigned.
  virtual bool SetString(const std::string& text) = 0;
  virtual std::string TextSummary() const = 0;
};

class OccurrenceBase : public IOccurrence {
 public:
  int32_t OccurrenceType() const override { return type_; }
  void OccurrenceType(int32_t value) override { type_ = value; }
  bool MatchDayAndTime(Date when) const override {
    // Both are always asked; for specific dates a day of one entry and a time of another match.
    const bool day = MatchDay(when);
    const bool time = MatchTime(when);
    return day && time;
  }

 private:
  int32_t type_ = 0;
};

// A list of date-times.
class clsOccurrenceSpecific : public OccurrenceBase {
 public:
  std::vector<Date>& Dates() { return dates_; }
  const std::vector<Date>& Dates() const { return dates_; }

  int32_t OccurrenceRepetition() const override { return 0; }
  bool MatchDay(Date when) const override;
  bool MatchTime(Date when) const override;
  std::string GetString() const override;
  bool SetString(const std::string& text) override;
  std::string TextSummary() const override;

 private:
  std::vector<Date> dates_;
};

// One time of day on chosen days of the week (1 = Sunday .. 7 = Saturday).
class clsOccurrenceWeekly : public OccurrenceBase {
 public:
  Date Time() const { return time_; }
  void Time(Date value) { time_ = value; }
  bool DayOfWeek(int32_t index) const;
  void DayOfWeek(int32_t index, bool value);

  int32_t OccurrenceRepetition() const override { return 1; }
  bool MatchDay(Date when) const override;
  bool MatchTime(Date when) const override;
  std::string GetString() const override;
  bool SetString(const std::string& text) override;
  std::string TextSummary() const override;

 private:
  Date time_ = 0;
  std::array<bool, 7> days_{};
};

// One time of day on chosen weeks and days of the month, or on its first or last weekday. Week 0
// is "Last" (the month's last seven days); weeks 1 to 5 cover days 1-7, 8-14, ... 29-31.
class clsOccurrenceMonthly : public OccurrenceBase {
 public:
  Date Time() const { return time_; }
  void Time(Date value) { time_ = value; }
  const std::string& RepetitionData() const { return repetitionData_; }
  void RepetitionData(const std::string& value) { repetitionData_ = value; }
  bool DayOfWeek(int32_t index) const;
  void DayOfWeek(int32_t index, bool value);
  bool Week(int32_t index) const;
  void Week(int32_t index, bool value);
  bool FirstWeekday() const { return firstWeekday_; }
  void FirstWeekday(bool value) { firstWeekday_ = value; }
  bool LastWeekday() const { return lastWeekday_; }
  void LastWeekday(bool value) { lastWeekday_ = value; }

  int32_t OccurrenceRepetition() const override { return 2; }
  bool MatchDay(Date when) const override;
  bool MatchTime(Date when) const override;
  std::string GetString() const override;
  bool SetString(const std::string& text) override;
  std::string TextSummary() const override;

  // Days in a month as these schedules count them: every fourth year is a leap year, with no
  // exception for centuries, so February 2100 has 29 days.
  static int DaysInMonth(int year, int month);

 private:
  Date time_ = 0;
  std::string repetitionData_;
  std::array<bool, 7> days_{};
  std::array<bool, 6> weeks_{};
  bool firstWeekday_ = false;
  bool lastWeekday_ = false;
};

class clsOccurrenceFactory {
 public:
  // The occurrence an occurrence string describes; nothing for an empty or malformed string. A
  // string that begins with another digit gives an empty list of specific dates.
  static std::unique_ptr<IOccurrence> CreateOccurrence(const std::string& text);
};

}  // namespace tw
