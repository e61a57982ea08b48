#pragma once
#include <cstddef>
#include <vector>

#include "common/Date.h"
#include "scheduling/Occurrence.h"

namespace tw {

// The first `count` minutes, from the minute that holds `from` on, at which `occurrence` matches:
// the same minutes that asking MatchDayAndTime minute by minute finds. A match needs its day and
// its time of day to match, each tested apart, so the matching times of day are found once and
// then only the days are tried. The search gives up after `searchEnd` (by default 400 years on,
// where every calendar pattern has repeated, but not after 31 December 9999).
std::vector<Date> NextMatches(const IOccurrence& occurrence, Date from, size_t count, Date searchEnd = 0);

// The same answer the slow way, one minute after another; kept for comparison.
std::vector<Date> NextMatchesByMinute(const IOccurrence& occurrence, Date from, size_t count, Date searchEnd);

}  // namespace tw
