#pragma once
// Explanations of the logon errors that the rights launcher reports for the backup account: a
// titled text that tells the administrator what to change.
#include <cstdint>
#include <string>

#include "settings/TWSettings.h"

namespace tw {

class clsAuthMessages {
 public:
  explicit clsAuthMessages(TWSettings& settings) : settings_(settings) {}

  // The explanation for a logon error number; `location` is shown for numbers without one.
  std::string GetMessage(int32_t errorNumber, int32_t location);

 private:
  void AddMessageTitle(const std::string& title);
  void AddMessageParagraph(const std::string& paragraph);

  TWSettings& settings_;
  std::string message_;
};

}  // namespace tw
