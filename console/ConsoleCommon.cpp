#include "console/ConsoleCommon.h"

#include <algorithm>
#include <filesystem>

#include "common/Strings.h"

namespace tw::console {

namespace {

// Columns a character takes on a terminal: two for the wide East Asian scripts and the emoji
// blocks, none for combining marks, one for the rest. A table of Unicode's width classes would be
// exact; these ranges hold nearly every wide character a job name or label will meet.
size_t ColumnsOf(char32_t c) {
  if ((c >= 0x0300 && c <= 0x036F) || (c >= 0x200B && c <= 0x200F) || (c >= 0xFE00 && c <= 0xFE0F)) return 0;
  const bool wide = (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0xA4CF && c != 0x303F) ||
                    (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) ||
                    (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1F64F) ||
                    (c >= 0x1F900 && c <= 0x1F9FF) || (c >= 0x20000 && c <= 0x3FFFD);
  return wide ? 2 : 1;
}

// A table cell as shown: control characters (a CR LF as one) become blanks; the width counts
// terminal columns (ColumnsOf), a byte that is not UTF-8 as one.
struct Cell {
  std::string text;
  size_t width = 0;
};

Cell CellOf(std::string_view value) {
  Cell cell;
  for (size_t i = 0; i < value.size();) {
    if (value.substr(i, 2) == "\r\n") ++i;  // one line break, one blank
    const auto [c, length] = Utf8CharAt(value, i);
    const size_t taken = length == 0 ? 1 : length;
    const bool control = length != 0 && IsControlCharacter(c);
    cell.text += control ? std::string(" ") : std::string(value.substr(i, taken));
    cell.width += length == 0 || control ? 1 : ColumnsOf(c);
    i += taken;
  }
  return cell;
}

}  // namespace

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string YesNo(bool value) { return value ? "yes" : "no"; }

std::string WhenText(Date value) { return value == 0 ? "never" : IsoText(value); }

Json WhenJson(Date value) { return value == 0 ? Json(nullptr) : Json(Iso8601Text(value)); }

Json MailOutcomeJson(const std::optional<ReportMailOutcome>& outcome) {
  if (!outcome) return nullptr;
  Json json = {{"state", outcome->state}};
  if (outcome->state == "waiting") {
    json["retry"] = outcome->retry;
    json["next_try"] = WhenJson(outcome->at);
  } else {
    json["time"] = WhenJson(outcome->at);
  }
  return json;
}

void CheckText(std::string_view text, TextForm form, const std::string& what) {
  if (auto problem = TextProblem(text, form, what)) throw UsageError(*problem);
}

void PrintTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::vector<Cell>> cells;
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    auto& shown = cells.emplace_back();
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) {
      shown.push_back(CellOf(row[i]));
      widths[i] = std::max(widths[i], shown.back().width);
    }
  }
  for (const auto& row : cells) {
    std::string text;
    for (size_t i = 0; i < row.size(); ++i) {
      text += row[i].text;
      if (i + 1 < row.size()) text += std::string(widths[i] - row[i].width + 2, ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out << text << "\n";
  }
}

void PrintJson(std::ostream& out, const Json& json) {
  out << json.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
}

bool IsRunning(clsJob& job, const std::string& applicationFolder) {
  if (job.RunStatus() == -2) return true;
  std::error_code error;
  const auto marker = std::filesystem::path(applicationFolder) / ("BackupLog-" + job.BackupLogId() + ".txt");
  return std::filesystem::file_size(marker, error) > 0 && !error;
}

std::string JobRunningText(clsJob& job) {
  const Date since = job.RunStartTime();
  return job.Name() + " is running" + (since == 0 ? "" : " (since " + IsoText(since).substr(0, 16) + ")");
}

PlainHelp::PlainHelp() { label("Positionals", "Arguments"); }

std::string PlainHelp::make_option_opts(const CLI::Option* option) const {
  // A flag has no type name: it takes no value.
  if (option->get_positional() || option->get_type_name().empty()) return "";
  if (!option->get_option_text().empty()) return " " + option->get_option_text();
  // The type name before the ranges CLI11 appends to it: "INT:INT in [1 - 100000]".
  const std::string type = option->get_type_name().substr(0, option->get_type_name().find(':'));
  const bool number = type == "INT" || type == "UINT" || type == "FLOAT" || type == "NUMBER";
  return number ? " N" : " VALUE";
}

void Switch::Register(CLI::App* command, const std::string& name, const std::string& onHelp,
                      const std::string& offHelp) {
  auto* on = command->add_flag("--" + name, on_, onHelp);
  command->add_flag("--no-" + name, off_, offHelp)->excludes(on);
}

std::optional<bool> Switch::Value() const {
  if (on_) return true;
  if (off_) return false;
  return std::nullopt;
}

}  // namespace tw::console
