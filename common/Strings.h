#pragma once
// Small text helpers shared by every library.
#include <string>
#include <string_view>
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

}  // namespace tw
