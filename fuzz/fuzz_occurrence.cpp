// Schedule strings: the stored occurrence strings the service reads back, and the readable forms
// the console turns into them. Besides not failing, a string the console builds must read back as
// a valid occurrence that writes the same string again.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "common/Error.h"
#include "fuzz/FuzzSupport.h"
#include "scheduling/Occurrence.h"
#include "scheduling/OccurrenceBuilder.h"
#include "scheduling/OccurrenceSearch.h"

namespace {

using namespace tw;

// What the service and the console do with an occurrence once they have one.
void Use(IOccurrence& occurrence) {
  occurrence.GetString();
  for (int32_t type = 0; type <= 2; ++type) {
    occurrence.OccurrenceType(type);
    occurrence.TextSummary();
  }
  // A Monday evening, a leap day, and the last minute of a month.
  for (Date when : {46349.875, 46446.5, 46418.99930555}) occurrence.MatchDayAndTime(when);
  // Two months of search are enough to reach every kind of day; the full default span costs
  // hundreds of milliseconds for an occurrence that never matches.
  NextMatches(occurrence, 46349.5, 5, 46349.5 + 62);
}

// A string built from a readable form is valid and reads back as itself.
void CheckBuilt(const std::string& built) {
  if (!OccurrenceProblem(built).empty()) fuzz::PropertyFailed("a built occurrence string is not valid");
  auto occurrence = clsOccurrenceFactory::CreateOccurrence(built);
  if (!occurrence || occurrence->GetString() != built) {
    fuzz::PropertyFailed("a built occurrence string does not read back as itself");
  }
}

template <typename Build>
void TryBuilder(Build build, std::string_view text) {
  std::string built;
  try {
    built = build(text);
  } catch (const std::invalid_argument&) {
    return;  // refused with a message: what the console shows
  }
  CheckBuilt(built);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);

  if (auto occurrence = clsOccurrenceFactory::CreateOccurrence(text)) {
    Use(*occurrence);
    // What the occurrence writes reads back as the same occurrence.
    const std::string written = occurrence->GetString();
    auto again = clsOccurrenceFactory::CreateOccurrence(written);
    if (!again || again->GetString() != written) fuzz::PropertyFailed("GetString does not read back as itself");
  }
  OccurrenceProblem(text);

  TryBuilder(WeeklyOccurrence, text);
  TryBuilder(MonthlyOccurrence, text);
  TryBuilder(FirstWeekdayOccurrence, text);
  TryBuilder(LastWeekdayOccurrence, text);
  TryBuilder(SpecificOccurrence, text);
  return 0;
}
