#include "console/ConfigCommands.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <functional>
#include <thread>

#include "common/Error.h"
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

// "twctl logs" reads at most this many entries, the most -n allows.
constexpr int32_t kMaxEntries = 100000;

// The moment --since names: a date (its midnight) or a date and time, "today" or "yesterday" (from
// midnight), or a span back from now such as "-30min", "-2h" or "-3d".
Date RequireSince(const std::string& text, Date now) {
  if (text == "today") return DateOnly(now);
  if (text == "yesterday") return DateOnly(now) - 1;
  if (const auto when = ParseIsoDate(text)) return *when;
  size_t digits = 1;
  while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
  if (text.size() > 1 && text[0] == '-' && digits > 1 && digits <= 7) {
    const std::string unit = text.substr(digits);
    const double amount = std::stod(text.substr(1, digits - 1));
    const double seconds = unit == "s" ? 1 : unit == "min" ? 60 : unit == "h" ? 3600 : unit == "d" ? 86400 : 0;
    if (seconds > 0) return now - amount * seconds / kSecondsPerDay;
  }
  throw UsageError("invalid time " + Quoted(text) +
                   " for --since (expected \"YYYY-MM-DD[ HH:MM[:SS]]\", today, yesterday, or -30min, -2h, -3d)");
}

// Whether the entry's title or message names the job: its name, in any case, as a word of its own,
// as the service writes it ("The backup job Nightly is due, ...").
bool NamesJob(const clsLogEntry& entry, const std::string& job) {
  const std::string text = ToLower(entry.Title + "\n" + entry.Message);
  const std::string name = ToLower(job);
  const auto isWordChar = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; };
  for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
    const bool before = at == 0 || !isWordChar(text[at - 1]);
    const bool after = at + name.size() == text.size() || !isWordChar(text[at + name.size()]);
    if (before && after) return true;
  }
  return false;
}

// The newest `count` entries, newest first.
std::vector<clsLogEntry> Newest(clsLogs& logs, int32_t count) {
  // NaN marks elements that no entry filled.
  clsLogEntry unfilled;
  unfilled.Timestamp = std::nan("");
  std::vector<clsLogEntry> entries(static_cast<size_t>(count), unfilled);
  logs.GetLastLogs(count, entries);
  std::erase_if(entries, [](const clsLogEntry& e) { return std::isnan(e.Timestamp); });
  return entries;
}

bool Wanted(const clsLogEntry& entry, const LogsOptions& options) {
  return !options.job || NamesJob(entry, *options.job);
}

// Up to `limit` entries that pass the filters, newest first. Without filters that is one read;
// with them the log is read back in growing steps until enough match, an entry is older than
// `since`, or the log ends.
std::vector<clsLogEntry> Selected(clsLogs& logs, const LogsOptions& options, std::optional<Date> since, int32_t limit) {
  if (!since && !options.job) return Newest(logs, limit);
  for (int32_t asked = std::min(limit, 100);; asked = std::min(asked * 4, kMaxEntries)) {
    const auto entries = Newest(logs, asked);
    std::vector<clsLogEntry> kept;
    bool reachedSince = false;
    for (const auto& e : entries) {
      if (since && e.Timestamp < *since) {
        reachedSince = true;
        break;
      }
      if (Wanted(e, options) && static_cast<int32_t>(kept.size()) < limit) kept.push_back(e);
    }
    const bool done = reachedSince || static_cast<int32_t>(kept.size()) >= limit ||
                      entries.size() < static_cast<size_t>(asked) || asked == kMaxEntries;
    if (done) return kept;
  }
}

bool SameEntry(const clsLogEntry& a, const clsLogEntry& b) {
  return a.Timestamp == b.Timestamp && a.Title == b.Title && a.Message == b.Message;
}

// Prints `shown` oldest first, then every entry appended after the newest in the log now, as
// "tail -f" does. New entries are those above the last one seen; more than a poll's read of them
// at once (a hundred in half a second) shows only that many.
void Follow(clsLogs& logs, const LogsOptions& options, std::vector<clsLogEntry> shown, std::ostream& out) {
  constexpr int32_t kPollRead = 100;
  bool first = true;
  const auto print = [&](const clsLogEntry& e) {
    out << (first ? "" : "\n") << FormatLogEntry(e) << std::flush;
    first = false;
  };
  std::for_each(shown.rbegin(), shown.rend(), print);
  auto newest = Newest(logs, 1);
  const int polls = options.followSeconds > 0 ? options.followSeconds * 1000 / options.pollMilliseconds : -1;
  for (int poll = 0; polls < 0 || poll < polls; ++poll) {
    std::this_thread::sleep_for(std::chrono::milliseconds(options.pollMilliseconds));
    const auto entries = Newest(logs, kPollRead);
    if (entries.empty()) continue;
    auto end = entries.end();
    if (!newest.empty()) {
      end = std::find_if(entries.begin(), entries.end(), [&](const clsLogEntry& e) { return SameEntry(e, newest[0]); });
    }
    for (auto it = std::make_reverse_iterator(end); it != entries.rend(); ++it) {
      if (Wanted(*it, options)) print(*it);
    }
    newest = {entries.front()};
  }
}

}  // namespace

int ConfigList(TWSettings& settings, bool json, std::ostream& out) {
  SettingsStore& store = settings.Store();
  // A value that does not read (a hand edit, a file from another version) is shown with its
  // reason in its place, so that one bad value does not hide the others; the exit status says so.
  bool allRead = true;
  const auto reasonOf = [&](const std::function<void()>& read) -> std::optional<std::string> {
    try {
      read();
      return std::nullopt;
    } catch (const TWError& e) {
      allRead = false;
      return e.Description;
    }
  };
  if (json) {
    Json object = Json::object();
    for (const auto& key : AllSettingKeys()) {
      if (!key.listed) continue;
      Json value;
      if (auto reason = reasonOf([&] { value = ValueJson(store, key); })) value = {{"unreadable", *reason}};
      object[std::string(key.key)] = value;
    }
    PrintJson(out, object);
    return allRead ? 0 : 1;
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto& key : AllSettingKeys()) {
    if (!key.listed) continue;
    std::string value;
    if (auto reason = reasonOf([&] { value = ShownValue(store, key); })) value = "(unreadable: " + *reason + ")";
    rows.push_back({std::string(key.key), value});
  }
  PrintTable(out, rows);
  return allRead ? 0 : 1;
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

int Logs(TWSettings& settings, const ConsoleEnvironment& environment, const LogsOptions& options, std::ostream& out) {
  SystemClock systemClock;
  const Clock& clock = environment.clock ? *environment.clock : systemClock;
  const std::optional<Date> since =
      options.since ? std::optional(RequireSince(*options.since, clock.Now())) : std::nullopt;
  BlockingPump pump;
  clsLogs logs(environment.applicationFolder, settings, clock, pump);
  const int32_t limit = options.count.value_or(since ? kMaxEntries : 20);
  auto entries = Selected(logs, options, since, limit);

  if (options.json) {
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
  if (entries.empty() && !options.follow) {
    const bool filtered = options.since || options.job;
    out << "The application log in " << logs.LogDirectory()
        << (filtered ? " has no entry that matches.\n" : " is empty.\n");
    return 0;
  }
  if (!options.follow) {
    for (size_t i = 0; i < entries.size(); ++i) out << (i > 0 ? "\n" : "") << FormatLogEntry(entries[i]);
    return 0;
  }
  Follow(logs, options, entries, out);
  return 0;
}

}  // namespace tw::console
