#pragma once
// Small text helpers shared by every library.
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tw {

// Every occurrence of `from`, left to right, without rescanning the replacement.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);
// All pieces between separators, empty ones included: "A;" gives "A" and "".
std::vector<std::string> Split(std::string_view text, char separator);
std::string Join(const std::vector<std::string>& pieces, std::string_view separator);
// Removes blanks (spaces only) from both ends, as the platform's Trim does.
std::string_view TrimBlanks(std::string_view text);
// Removes spaces, tabs, carriage returns and line feeds from both ends.
std::string_view TrimWhitespace(std::string_view text);
bool EqualsIgnoreCase(std::string_view a, std::string_view b);
bool StartsWithIgnoreCase(std::string_view text, std::string_view prefix);
std::string ToLower(std::string_view text);

// The character of UTF-8 text that starts at byte `i`, and its length in bytes; a length of 0 when
// no well-formed character (no overlong form, surrogate or value past U+10FFFF) starts there.
std::pair<char32_t, size_t> Utf8CharAt(std::string_view text, size_t i);
// C0 controls (line breaks and tabs among them), DEL and the C1 controls.
bool IsControlCharacter(char32_t c);
// Every line break, CR LF, a lone CR or a lone LF, as CR LF: the form the product's texts keep.
std::string CrLfLineEnds(std::string_view text);

}  // namespace tw
