#include "common/NumberText.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "common/Error.h"
#include "common/Strings.h"

namespace tw {
namespace {

// The significant digits needed in the classic form lie within 15; beyond them the plain form
// would show noise.
constexpr int kSignificantDigits = 15;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Scans a number at `pos`; returns its length (0 when there is none) and its canonical spelling.
size_t ScanNumber(std::string_view text, size_t pos, std::string& canonical) {
  const size_t start = pos;
  std::string sign;
  if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
    if (text[pos] == '-') sign = "-";
    ++pos;
  }
  std::string whole, fraction;
  while (pos < text.size() && IsDigit(text[pos])) whole += text[pos++];
  if (pos < text.size() && text[pos] == '.') {
    size_t after = pos + 1;
    while (after < text.size() && IsDigit(text[after])) fraction += text[after++];
    if (!whole.empty() || !fraction.empty()) pos = after;
  }
  if (whole.empty() && fraction.empty()) return 0;
  std::string exponent;
  if (pos < text.size() && (text[pos] == 'E' || text[pos] == 'e')) {
    size_t after = pos + 1;
    std::string expSign;
    if (after < text.size() && (text[after] == '+' || text[after] == '-')) expSign = text[after++];
    std::string digits;
    while (after < text.size() && IsDigit(text[after])) digits += text[after++];
    if (!digits.empty()) {
      exponent = "e" + expSign + digits;
      pos = after;
    }
  }
  canonical = sign + (whole.empty() ? "0" : whole) + "." + (fraction.empty() ? "0" : fraction) + exponent;
  return pos - start;
}

double ConvertCanonical(const std::string& canonical) {
  double value = 0;
  const char* first = canonical.data();
  const char* last = canonical.data() + canonical.size();
  auto [ptr, ec] = std::from_chars(first, last, value);
  if (ec == std::errc::result_out_of_range) {
    // Too large or too small for a double: the platform gives Overflow for the first and 0 for
    // the second; the caller sees the nearest representable value instead of an error. strtod
    // gives an infinity for the first, which no number text can write back, so it is capped.
    value = std::strtod(canonical.c_str(), nullptr);
    if (std::isinf(value)) value = std::copysign(std::numeric_limits<double>::max(), value);
  }
  (void)ptr;
  return value;
}

}  // namespace

std::string NumberToText(double value) {
  if (value == 0) return "0";
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value < 0 ? "-Infinity" : "Infinity";

  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%.*e", kSignificantDigits - 1, std::fabs(value));
  // buffer: d.dddddddddddddde+XX
  std::string digits(1, buffer[0]);
  const char* p = buffer + 2;
  while (*p != 'e') digits += *p++;
  const int exponent = std::atoi(p + 1);
  while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
  const int count = static_cast<int>(digits.size());

  std::string text = value < 0 ? "-" : "";
  const bool tooLarge = exponent >= kSignificantDigits;
  const bool tooSmall = exponent < 0 && (-exponent - 1) + count > kSignificantDigits;
  if (tooLarge || tooSmall) {
    text += digits.substr(0, 1);
    if (count > 1) text += "." + digits.substr(1);
    char expText[16];
    std::snprintf(expText, sizeof expText, "E%c%02d", exponent < 0 ? '-' : '+', std::abs(exponent));
    return text + expText;
  }
  if (exponent >= 0) {
    if (count <= exponent + 1) {
      return text + digits + std::string(exponent + 1 - count, '0');
    }
    return text + digits.substr(0, exponent + 1) + "." + digits.substr(exponent + 1);
  }
  return text + "0." + std::string(-exponent - 1, '0') + digits;
}

double LeadingNumber(std::string_view text) {
  size_t pos = 0;
  while (pos < text.size() && IsBlank(text[pos])) ++pos;
  std::string canonical;
  if (ScanNumber(text, pos, canonical) == 0) return 0;
  return ConvertCanonical(canonical);
}

std::optional<double> ParseNumber(std::string_view text) {
  const std::string_view trimmed = TrimBlanks(text);
  std::string canonical;
  if (trimmed.empty() || ScanNumber(trimmed, 0, canonical) != trimmed.size()) return std::nullopt;
  return ConvertCanonical(canonical);
}

bool IsNumeric(std::string_view text) { return ParseNumber(text).has_value(); }

int32_t ToInt32(double value) {
  const double rounded = std::nearbyint(value);  // the default rounding mode rounds halves to even
  if (!(rounded >= -2147483648.0 && rounded <= 2147483647.0)) {
    throw TWError(errnum::Overflow, "Overflow");
  }
  return static_cast<int32_t>(rounded);
}

int32_t TextToInt32(std::string_view text) {
  const auto number = ParseNumber(text);
  if (!number) throw TWError(errnum::TypeMismatch, "Type mismatch");
  return ToInt32(*number);
}

bool TextToBool(std::string_view text) {
  const std::string_view trimmed = TrimBlanks(text);
  if (EqualsIgnoreCase(trimmed, "true")) return true;
  if (EqualsIgnoreCase(trimmed, "false")) return false;
  const auto number = ParseNumber(trimmed);
  if (!number) throw TWError(errnum::TypeMismatch, "Type mismatch");
  return *number != 0;
}

}  // namespace tw
