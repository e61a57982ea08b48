#include "scheduling/Occurrence.h"

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"

namespace tw {
namespace {

const char* const kDayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kWeekNames[] = {"Last", "1st", "2nd", "3rd", "4th", "5th"};

[[noreturn]] void SubscriptOutOfRange() {
  throw TWError(errnum::SubscriptOutOfRange, "Subscript out of range", "TWService");
}

// Splits as the platform does: an empty text has no pieces at all.
std::vector<std::string> Pieces(const std::string& text, char separator) {
  if (text.empty()) return {};
  return Split(text, separator);
}

const std::string& Piece(const std::vector<std::string>& pieces, size_t index) {
  if (index >= pieces.size()) SubscriptOutOfRange();
  return pieces[index];
}

std::string Flag(bool value) { return value ? "-1" : "0"; }

std::string Flags(const bool* values, size_t count) {
  std::vector<std::string> texts;
  for (size_t i = 0; i < count; ++i) texts.push_back(Flag(values[i]));
  return Join(texts, ",");
}

// The text after the code and its "|", split into fields; nothing when `text` is not of `code`.
bool FieldsOf(const std::string& text, char code, std::vector<std::string>& fields) {
  if (text.empty() || text[0] != code) return false;
  fields = Pieces(text.size() > 2 ? text.substr(2) : std::string(), '|');
  return true;
}

bool SameMinute(Date a, Date b) {
  const DateParts x = SplitDate(a);
  const DateParts y = SplitDate(b);
  return x.hour == y.hour && x.minute == y.minute;
}

bool SameDay(Date a, Date b) {
  const DateParts x = SplitDate(a);
  const DateParts y = SplitDate(b);
  return x.year == y.year && x.month == y.month && x.day == y.day;
}

std::string DayNames(const std::array<bool, 7>& days, const char* separator) {
  std::vector<std::string> names;
  for (size_t i = 0; i < days.size(); ++i) {
    if (days[i]) names.emplace_back(kDayNames[i]);
  }
  return Join(names, separator);
}

void CheckDayIndex(int32_t index) {
  if (index < 1 || index > 7) SubscriptOutOfRange();
}

}  // namespace

// ---- specific dates -------------------------------------------------------------------------

bool clsOccurrenceSpecific::MatchDay(Date when) const {
  for (Date date : dates_) {
    if (SameDay(date, when)) return true;
  }
  return false;
}

bool clsOccurrenceSpecific::MatchTime(Date when) const {
  for (Date date : dates_) {
    if (SameMinute(date, when)) return true;
  }
  return false;
}

std::string clsOccurrenceSpecific::GetString() const {
  std::vector<std::string> numbers;
  for (Date date : dates_) numbers.push_back(NumberToText(date));
  return "0|" + Join(numbers, "|");
}

bool clsOccurrenceSpecific::SetString(const std::string& text) {
  std::vector<std::string> fields;
  if (!FieldsOf(text, '0', fields)) return false;
  dates_.clear();
  for (const auto& field : fields) dates_.push_back(LeadingNumber(field));
  return true;
}

std::string clsOccurrenceSpecific::TextSummary() const {
  std::vector<std::string> entries;
  for (Date date : dates_) {
    if (OccurrenceType() == 0) {
      entries.push_back(ShortDate(date));
    } else if (OccurrenceType() == 2) {
      entries.push_back(ShortDate(date) + " " + ShortTime(date));
    } else {
      entries.push_back(ShortTime(date));
    }
  }
  return Join(entries, ", ");
}

// ---- weekly ---------------------------------------------------------------------------------

bool clsOccurrenceWeekly::DayOfWeek(int32_t index) const {
  CheckDayIndex(index);
  return days_[static_cast<size_t>(index - 1)];
}

void clsOccurrenceWeekly::DayOfWeek(int32_t index, bool value) {
  CheckDayIndex(index);
  days_[static_cast<size_t>(index - 1)] = value;
}

bool clsOccurrenceWeekly::MatchDay(Date when) const { return DayOfWeek(Weekday(when)); }

bool clsOccurrenceWeekly::MatchTime(Date when) const { return SameMinute(time_, when); }

std::string clsOccurrenceWeekly::GetString() const {
  return "1|" + NumberToText(time_) + "|" + Flags(days_.data(), days_.size());
}

bool clsOccurrenceWeekly::SetString(const std::string& text) {
  std::vector<std::string> fields;
  if (!FieldsOf(text, '1', fields)) return false;
  time_ = LeadingNumber(Piece(fields, 0));
  const auto days = Pieces(Piece(fields, 1), ',');
  for (int32_t i = 0; i < 7; ++i) DayOfWeek(i + 1, TextToBool(Piece(days, static_cast<size_t>(i))));
  return true;
}

std::string clsOccurrenceWeekly::TextSummary() const {
  if (OccurrenceType() == 1) return ShortTime(time_);
  const std::string days = DayNames(days_, ",");
  if (days.empty()) return "(none)";
  return OccurrenceType() == 2 ? days + " " + ShortTime(time_) : days;
}

// ---- monthly --------------------------------------------------------------------------------

int clsOccurrenceMonthly::DaysInMonth(int year, int month) {
  switch (month) {
    case 4:
    case 6:
    case 9:
    case 11: return 30;
    case 2: return year % 4 == 0 ? 29 : 28;
    default: return 31;
  }
}

bool clsOccurrenceMonthly::DayOfWeek(int32_t index) const {
  CheckDayIndex(index);
  return days_[static_cast<size_t>(index - 1)];
}

void clsOccurrenceMonthly::DayOfWeek(int32_t index, bool value) {
  CheckDayIndex(index);
  days_[static_cast<size_t>(index - 1)] = value;
}

bool clsOccurrenceMonthly::Week(int32_t index) const {
  if (index < 0 || index > 5) SubscriptOutOfRange();
  return weeks_[static_cast<size_t>(index)];
}

void clsOccurrenceMonthly::Week(int32_t index, bool value) {
  if (index < 0 || index > 5) SubscriptOutOfRange();
  weeks_[static_cast<size_t>(index)] = value;
}

bool clsOccurrenceMonthly::MatchDay(Date when) const {
  const DateParts parts = SplitDate(when);
  const int d = parts.day;
  const int w = Weekday(when);
  const int last = DaysInMonth(parts.year, parts.month);
  const bool monToFri = w >= 2 && w <= 6;
  bool match = false;
  if (DayOfWeek(w)) {
    const int week = (d - 1) / 7 + 1;
    if (Week(week)) {
      match = true;
    } else if (Week(0) && d > last - 7) {
      match = true;
    }
  }
  // A month that begins on a Saturday or Sunday has its first weekday on the Monday after.
  if (firstWeekday_ && ((d == 1 && monToFri) || (d == 2 && w == 2) || (d == 3 && w == 2))) match = true;
  // A month that ends on a Saturday or Sunday has its last weekday on the Friday before.
  if (lastWeekday_ && ((d == last && monToFri) || (d == last - 1 && w == 6) || (d == last - 2 && w == 6))) {
    match = true;
  }
  return match;
}

bool clsOccurrenceMonthly::MatchTime(Date when) const { return SameMinute(time_, when); }

std::string clsOccurrenceMonthly::GetString() const {
  return "2|" + NumberToText(time_) + "|" + Flags(weeks_.data(), weeks_.size()) + "|" +
         Flags(days_.data(), days_.size()) + "|" + Flag(firstWeekday_) + "|" + Flag(lastWeekday_);
}

bool clsOccurrenceMonthly::SetString(const std::string& text) {
  std::vector<std::string> fields;
  if (!FieldsOf(text, '2', fields)) return false;
  time_ = LeadingNumber(Piece(fields, 0));
  const auto weeks = Pieces(Piece(fields, 1), ',');
  for (int32_t i = 0; i < 6; ++i) Week(i, TextToBool(Piece(weeks, static_cast<size_t>(i))));
  const auto days = Pieces(Piece(fields, 2), ',');
  for (int32_t i = 0; i < 7; ++i) DayOfWeek(i + 1, TextToBool(Piece(days, static_cast<size_t>(i))));
  firstWeekday_ = TextToBool(Piece(fields, 3));
  lastWeekday_ = TextToBool(Piece(fields, 4));
  return true;
}

std::string clsOccurrenceMonthly::TextSummary() const {
  if (OccurrenceType() == 1) return ShortTime(time_);
  std::vector<std::string> weekNames;
  for (size_t i = 0; i < weeks_.size(); ++i) {
    if (weeks_[i]) weekNames.emplace_back(kWeekNames[i]);
  }
  const std::string weeks = Join(weekNames, "&");
  const std::string days = DayNames(days_, "&");
  std::string firstLast;
  if (firstWeekday_ && lastWeekday_) {
    firstLast = "First&Last weekday";
  } else if (firstWeekday_) {
    firstLast = "First weekday";
  } else if (lastWeekday_) {
    firstLast = "Last weekday";
  }
  if (firstLast.empty() && (weeks.empty() || days.empty())) return "(none)";
  std::string summary(TrimBlanks(weeks + " " + days + " " + firstLast));
  if (OccurrenceType() == 2) summary += " " + ShortTime(time_);
  return summary;
}

// ---- factory --------------------------------------------------------------------------------

std::unique_ptr<IOccurrence> clsOccurrenceFactory::CreateOccurrence(const std::string& text) {
  if (text.empty() || text[0] < '0' || text[0] > '9') return nullptr;
  std::unique_ptr<IOccurrence> occurrence;
  switch (text[0]) {
    case '2': occurrence = std::make_unique<clsOccurrenceMonthly>(); break;
    case '1': occurrence = std::make_unique<clsOccurrenceWeekly>(); break;
    default: occurrence = std::make_unique<clsOccurrenceSpecific>(); break;
  }
  try {
    occurrence->SetString(text);
  } catch (...) {
    return nullptr;
  }
  return occurrence;
}

}  // namespace tw
