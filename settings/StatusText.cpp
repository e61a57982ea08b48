#include "settings/StatusText.h"

namespace tw {

std::string clsStatusText::StatusText(int32_t status) const {
  switch (status) {
    case -2: return "Running";
    case 0: return "Timed out";
    case 1: return "Completed normally";
    case 2: return "Encountered errors";
    default: return "Unknown status " + std::to_string(status);
  }
}

}  // namespace tw
