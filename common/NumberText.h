#pragma once
// Locale-independent number conversions with the platform's classic behaviour. Log files, report
// files, schedule strings and settings store numbers as text, and files written on one machine
// must read back the same on every other, so none of these looks at the locale.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tw {

// The platform's general number form: the shortest text with up to 15 significant digits, "."
// as the decimal point, no grouping. The exponent form (6.94444444444444E-04) is used where the
// plain form would need 15 or more integer digits, or more than 15 places after the point.
std::string NumberToText(double value);

// The numeric value of the longest numeric prefix of `text` (after leading blanks): an optional
// sign, digits with an optional "." and fraction, an optional exponent. 0 when there is none.
double LeadingNumber(std::string_view text);

// The whole text, blanks around it allowed, as a number; nothing when any of it is not numeric.
std::optional<double> ParseNumber(std::string_view text);
bool IsNumeric(std::string_view text);

// To a 32-bit integer, rounding halves to even; raises Overflow (6) outside the range.
int32_t ToInt32(double value);
// Text to a 32-bit integer as the platform converts it: the whole text must be numeric, or
// Type mismatch (13) is raised.
int32_t TextToInt32(std::string_view text);
// Text to a Boolean: any number (non-zero is true), or "True"/"False" in any case; otherwise
// Type mismatch (13).
bool TextToBool(std::string_view text);

}  // namespace tw
