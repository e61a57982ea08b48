#pragma once
// What the console's commands share: the two kinds of failure, output helpers, and on/off option
// pairs.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/Date.h"

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

std::string Quoted(const std::string& text);
std::string YesNo(bool value);
std::string WhenText(Date value);  // "never" for no date
Json WhenJson(Date value);         // null for no date
void PrintTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows);

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
