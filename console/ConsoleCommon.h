#pragma once
// What the console's commands share: the two kinds of failure, checks of typed text, output
// helpers, whether a job runs, and on/off option pairs.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/Date.h"
#include "settings/SettingKeys.h"
#include "settings/TWSettings.h"

namespace tw::console {

using Json = nlohmann::ordered_json;

// Bad usage: a value the administrator typed that cannot be right. Exit status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Failure: the command was well formed but cannot be done. Exit status 1.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Raises UsageError when `text` is not UTF-8 or holds what its form does not allow.
void CheckText(std::string_view text, TextForm form, const std::string& what);

std::string Quoted(const std::string& text);
std::string YesNo(bool value);
std::string WhenText(Date value);  // "never" for no date
Json WhenJson(Date value);
// What became of a report's mail (state, and the time or the next try); null when nothing was
// recorded.
Json MailOutcomeJson(const std::optional<ReportMailOutcome>& outcome);         // ISO 8601 with the offset from UTC; null for no date
// Columns aligned by the columns a terminal gives each character, not by bytes (a wide East Asian
// character takes two); a control character in a cell shows as a blank, so that a stored value
// with a line break cannot break the table.
void PrintTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows);
// Indented JSON and a line end. Text that is not UTF-8, which a value stored by an older version
// may be, shows U+FFFD where it fails rather than stopping the listing.
void PrintJson(std::ostream& out, const Json& json);

// A job runs while its run status is -2 (the executor is at work) or its marker file
// BackupLog-<backup log id>.txt in the application folder is not empty (a run is being launched
// or its report has not been read yet).
bool IsRunning(clsJob& job, const std::string& applicationFolder);
// "Nightly is running (since 2024-01-30 21:00)", or without the time when none is recorded.
std::string JobRunningText(clsJob& job);

// Help pages in plain words: an option shows the value it takes as one word ("-n N", "--source
// PATH"; an option's option_text names it, else N for a number and VALUE for text), without
// CLI11's type and range notation, "REQUIRED", "Excludes:" or "..."; whatever limits a value has
// are said in its description. Subcommands made after it is set take it over.
class PlainHelp : public CLI::Formatter {
 public:
  PlainHelp();
  std::string make_option_opts(const CLI::Option* option) const override;
};

// An option and its opposite, "--eject" and "--no-eject": unset, on or off.
class Switch {
 public:
  void Register(CLI::App* command, const std::string& name, const std::string& onHelp, const std::string& offHelp);
  std::optional<bool> Value() const;

 private:
  bool on_ = false;
  bool off_ = false;
};

}  // namespace tw::console
