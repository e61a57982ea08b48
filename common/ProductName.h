#pragma once
// The product's own name, and a text that names it as the administrator wants it named: the
// custom product name (options.custom_product_name) replaces it in every text people see.
#include <string>
#include <string_view>

#include "common/Strings.h"

namespace tw {

inline constexpr std::string_view kProductName = "Tarnwick";

// `text` with every "Tarnwick" (in that case) replaced by `customName`; unchanged when that is
// empty. A template is branded before its values (a job's name, a label, a host name) are put in,
// so that a value that holds the product's name keeps it.
inline std::string Branded(std::string_view text, const std::string& customName) {
  return customName.empty() ? std::string(text) : ReplaceAll(text, kProductName, customName);
}

}  // namespace tw
