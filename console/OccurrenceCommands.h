#pragma once
// twctl occurrence ... and twctl schemes: look at schedules without a job.
#include <optional>
#include <ostream>
#include <string>

#include "common/Clock.h"

namespace tw::console {

int OccurrenceDescribe(const std::string& text, int32_t type, std::ostream& out);
// Exit status 0 and "match", or 1 and "no match".
int OccurrenceCheck(const std::string& text, const std::string& when, std::ostream& out);
int OccurrenceNext(const std::string& text, const std::optional<std::string>& from, int count, bool json,
                   const Clock& clock, std::ostream& out);
int Schemes(bool json, std::ostream& out);

}  // namespace tw::console
