#include "console/ConsoleCommon.h"

#include <algorithm>
#include <filesystem>

#include "common/Strings.h"

namespace tw::console {

namespace {

// A table cell as shown: control characters (a CR LF as one) become blanks; the width counts
// characters, a byte that is not UTF-8 as one.
struct Cell {
  std::string text;
  size_t width = 0;
};

Cell CellOf(std::string_view value) {
  Cell cell;
  for (size_t i = 0; i < value.size(); ++cell.width) {
    if (value.substr(i, 2) == "\r\n") ++i;  // one line break, one blank
    const auto [c, length] = Utf8CharAt(value, i);
    const size_t taken = length == 0 ? 1 : length;
    cell.text += length != 0 && IsControlCharacter(c) ? std::string(" ") : std::string(value.substr(i, taken));
    i += taken;
  }
  return cell;
}

}  // namespace

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string YesNo(bool value) { return value ? "yes" : "no"; }

std::string WhenText(Date value) { return value == 0 ? "never" : IsoText(value); }

Json WhenJson(Date value) { return value == 0 ? Json(nullptr) : Json(Iso8601Text(value)); }

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
