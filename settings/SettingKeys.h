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
};

const std::vector<SettingKey>& AllSettingKeys();
const SettingKey* FindSettingKey(std::string_view key);
// Raises TWError when the key is not in the table: a programming fault, not a user's.
const SettingKey& SettingKeyOf(std::string_view key);

// Checks a value typed by an administrator; the message says what is wrong, or nothing.
std::optional<std::string> ValidateSettingText(const SettingKey& key, std::string_view text);
// "true", "yes", "on", "1" and their opposites, in any case.
std::optional<bool> ParseBooleanWord(std::string_view text);

}  // namespace tw
