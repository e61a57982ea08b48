#pragma once
#include <cstdint>
#include <string>

namespace tw {

// The display text of a run status, as the summaries show it.
class clsStatusText {
 public:
  std::string StatusText(int32_t status) const;
};

}  // namespace tw
