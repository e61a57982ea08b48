#pragma once
// Explanations of the logon errors that the rights launcher reports for the backup account: a
// titled text that tells the administrator what to change.
#include <cstdint>
#include <string>
#include <utility>

#include "common/ProductName.h"
#include "settings/TWSettings.h"

namespace tw {

class clsAuthMessages {
 public:
  // The explanations name the product `productName` (the custom product name, when one is set).
  explicit clsAuthMessages(TWSettings& settings, std::string productName = std::string(kProductName))
      : settings_(settings), productName_(std::move(productName)) {}

  // The explanation for a logon error number; `location` is shown for numbers without one.
  std::string GetMessage(int32_t errorNumber, int32_t location);

 private:
  void AddMessageTitle(const std::string& title);
  void AddMessageParagraph(const std::string& paragraph);

  TWSettings& settings_;
  const std::string productName_;
  std::string message_;
};

}  // namespace tw
