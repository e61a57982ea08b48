#include "console/ConfigCommands.h"

#include <cmath>

#include "common/EventPump.h"
#include "common/Strings.h"
#include "console/ConsoleCommon.h"
#include "logging/LogDisplay.h"
#include "logging/clsLogs.h"
#include "reporting/MailAddress.h"
#include "settings/SettingKeys.h"

namespace tw::console {
namespace {

std::string ShownValue(SettingsStore& store, const SettingKey& key) {
  const std::string value = store.ReadAsText(key.key);
  if (key.secret) return value.empty() ? "(not set)" : "(set)";
  return value;
}

// A value in JSON: true or false, a number, or text; a password only as "(set)" or "(not set)".
Json ValueJson(SettingsStore& store, const SettingKey& key) {
  if (key.secret) return ShownValue(store, key);
  if (key.kind == ValueKind::Boolean) return store.ReadBool(key.key);
  if (key.kind == ValueKind::Integer) return store.ReadInt(key.key);
  return ShownValue(store, key);
}

const SettingKey& RequireKey(const std::string& key) {
  const SettingKey* found = FindSettingKey(key);
  if (found == nullptr || !found->listed) {
    throw UsageError("unknown setting " + Quoted(key) + " ('twctl config list' shows them all)");
  }
  return *found;
}

}  // namespace

int ConfigList(TWSettings& settings, bool json, std::ostream& out) {
  SettingsStore& store = settings.Store();
  if (json) {
    Json object = Json::object();
    for (const auto& key : AllSettingKeys()) {
      if (key.listed) object[std::string(key.key)] = ValueJson(store, key);
    }
    PrintJson(out, object);
    return 0;
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto& key : AllSettingKeys()) {
    if (key.listed) rows.push_back({std::string(key.key), ShownValue(store, key)});
  }
  PrintTable(out, rows);
  return 0;
}

int ConfigGet(TWSettings& settings, const std::string& key, bool json, std::ostream& out) {
  const SettingKey& found = RequireKey(key);
  if (json) {
    PrintJson(out, {{"key", key}, {"value", ValueJson(settings.Store(), found)}});
  } else {
    out << ShownValue(settings.Store(), found) << "\n";
  }
  return 0;
}

int ConfigSet(TWSettings& settings, const std::string& keyName, std::string value,
              const ConsoleEnvironment& environment, std::ostream& err) {
  const SettingKey& key = RequireKey(keyName);
  if (!key.editable) throw UsageError(keyName + " is kept by the service itself and cannot be set here");
  if (key.secret && value != "-" && !value.empty()) {
    err << "twctl: note: a password given as an argument can be seen by other users while twctl runs and stays "
           "in the shell's history; give - to type it without echo.\n";
  }
  if (value == "-") {
    // Read from standard input, without echo on a terminal, so a password stays out of the
    // shell's history and the process list.
    auto typed = environment.readSecret ? environment.readSecret("Value for " + keyName + ": ") : std::nullopt;
    if (!typed) throw Failure("no value was given on standard input for " + keyName);
    value = *typed;
  }
  if (auto problem = ValidateSettingText(key, value)) throw UsageError(*problem);
  // The sender and the recipient lists (the keys whose text is a list) hold mail addresses.
  const bool recipients = key.kind == ValueKind::Text && key.form == TextForm::List;
  if (recipients || keyName == "mail.sender") {
    if (auto problem = MailAddressProblem(value, recipients, keyName)) throw UsageError(*problem);
  }
  settings.Store().WriteFromText(key.key, value);
  return 0;
}

int Logs(TWSettings& settings, const ConsoleEnvironment& environment, int32_t count, bool json, std::ostream& out) {
  SystemClock systemClock;
  BlockingPump pump;
  clsLogs logs(environment.applicationFolder, settings, environment.clock ? *environment.clock : systemClock, pump);
  // NaN marks elements that no entry filled.
  clsLogEntry unfilled;
  unfilled.Timestamp = std::nan("");
  std::vector<clsLogEntry> entries(static_cast<size_t>(count), unfilled);
  logs.GetLastLogs(count, entries);
  std::erase_if(entries, [](const clsLogEntry& e) { return std::isnan(e.Timestamp); });

  if (json) {
    Json list = Json::array();
    for (const auto& e : entries) {
      list.push_back({{"time", WhenJson(e.Timestamp)},
                      {"timestamp", e.Timestamp},
                      {"type", e.LogType},
                      {"type_name", LogTypeName(e.LogType)},
                      {"title", e.Title},
                      {"message", e.Message},
                      {"attachment_type", e.AttachmentType},
                      {"attachment", e.Attachment}});
    }
    PrintJson(out, list);
    return 0;
  }
  if (entries.empty()) {
    out << "The application log in " << logs.LogDirectory() << " is empty.\n";
    return 0;
  }
  for (size_t i = 0; i < entries.size(); ++i) out << (i > 0 ? "\n" : "") << FormatLogEntry(entries[i]);
  return 0;
}

}  // namespace tw::console
