#pragma once
// Readable forms of the occurrence strings, so that an administrator never writes one by hand.
// Each function returns the occurrence string, or raises std::invalid_argument with a message
// that says what is wrong with the text.
#include <string>
#include <string_view>

namespace tw {

// "mon,fri@21:00"; days by their names or first three letters, "weekdays" or "daily".
std::string WeeklyOccurrence(std::string_view text);
// "last:fri@21:00", "1st,3rd:mon,wed@09:00"; weeks are last, 1st .. 5th (or 1 .. 5).
std::string MonthlyOccurrence(std::string_view text);
// "09:00": the first (or last) Monday-to-Friday day of every month.
std::string FirstWeekdayOccurrence(std::string_view time);
std::string LastWeekdayOccurrence(std::string_view time);
// "2026-12-24 18:00,2026-12-31 12:00".
std::string SpecificOccurrence(std::string_view text);

// Checks a stored or typed occurrence string: it must be of one of the three kinds and read back
// without error. Returns the problem, or an empty text.
std::string OccurrenceProblem(const std::string& text);

}  // namespace tw
