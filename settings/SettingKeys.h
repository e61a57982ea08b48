#pragma once
// Every single-valued setting of the store, by its dotted key: its kind, its default, whether it
// is secret, and whether the console may change it. The object model reads through this table,
// and the console lists, shows and validates from it, so a setting is defined in one place.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

enum class ValueKind { Text, Boolean, Integer, Date, Choice };

// How a text may be written: on one line; over several lines (tabs and line breaks allowed, kept
// with CR LF); or as a list of addresses, which a line break separates as ";" and "," do.
enum class TextForm { Line, Lines, List };

struct SettingKey {
  std::string_view key;           // "mail.server"
  ValueKind kind;
  std::string_view defaultValue;  // in the text form the console shows
  std::string_view help;
  bool secret = false;            // never printed
  bool editable = true;           // false for state that the programs themselves write
  bool listed = true;             // false for the console's request channel
  int64_t minimum = 0;            // Integer only
  int64_t maximum = 0;
  std::vector<std::string_view> choices = {};  // Choice only
  TextForm form = TextForm::Line;              // Text only; every other kind is one line
};

const std::vector<SettingKey>& AllSettingKeys();
const SettingKey* FindSettingKey(std::string_view key);
// Raises TWError when the key is not in the table: a programming fault, not a user's.
const SettingKey& SettingKeyOf(std::string_view key);

// What is wrong with `text` as a value of this form, naming it `what` ("mail.sender", "--label");
// nothing when it is fine. Every text is UTF-8; one line holds no control character, since it
// ends up in file names, mail headers, SMTP commands and one-line file formats.
std::optional<std::string> TextProblem(std::string_view text, TextForm form, std::string_view what);

// Checks a value typed by an administrator; the message says what is wrong, or nothing.
std::optional<std::string> ValidateSettingText(const SettingKey& key, std::string_view text);
// "true", "yes", "on", "1" and their opposites, in any case.
std::optional<bool> ParseBooleanWord(std::string_view text);

}  // namespace tw
