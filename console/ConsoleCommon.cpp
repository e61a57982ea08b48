#include "console/ConsoleCommon.h"

#include <algorithm>

namespace tw::console {

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string YesNo(bool value) { return value ? "yes" : "no"; }

std::string WhenText(Date value) { return value == 0 ? "never" : IsoText(value); }

Json WhenJson(Date value) { return value == 0 ? Json(nullptr) : Json(IsoText(value)); }

void PrintTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows) {
    std::string text;
    for (size_t i = 0; i < row.size(); ++i) {
      text += row[i];
      if (i + 1 < row.size()) text += std::string(widths[i] - row[i].size() + 2, ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out << text << "\n";
  }
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
