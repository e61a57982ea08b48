#include "console/OccurrenceCommands.h"

#include "console/ConsoleCommon.h"
#include "scheduling/Occurrence.h"
#include "scheduling/OccurrenceBuilder.h"
#include "scheduling/OccurrenceSearch.h"
#include "scheduling/Schemes.h"

namespace tw::console {
namespace {

std::unique_ptr<IOccurrence> RequireOccurrence(const std::string& text) {
  const std::string problem = OccurrenceProblem(text);
  if (!problem.empty()) throw UsageError(problem);
  return clsOccurrenceFactory::CreateOccurrence(text);
}

Date RequireMoment(const std::string& text, const char* what) {
  const auto when = ParseIsoDate(text);
  if (!when) throw UsageError("invalid " + std::string(what) + " " + Quoted(text) + " (expected \"YYYY-MM-DD HH:MM\")");
  return *when;
}

}  // namespace

int OccurrenceDescribe(const std::string& text, int32_t type, std::ostream& out) {
  auto occurrence = RequireOccurrence(text);
  occurrence->OccurrenceType(type);
  out << occurrence->TextSummary() << "\n";
  return 0;
}

int OccurrenceCheck(const std::string& text, const std::string& when, std::ostream& out) {
  auto occurrence = RequireOccurrence(text);
  const bool match = occurrence->MatchDayAndTime(RequireMoment(when, "time"));
  out << (match ? "match" : "no match") << "\n";
  return match ? 0 : 1;
}

int OccurrenceNext(const std::string& text, const std::optional<std::string>& from, int count, bool json,
                   const Clock& clock, std::ostream& out) {
  auto occurrence = RequireOccurrence(text);
  const Date start = from ? RequireMoment(*from, "start") : clock.Now();
  const auto matches = NextMatches(*occurrence, start, static_cast<size_t>(count));
  static const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  if (json) {
    Json list = Json::array();
    for (Date when : matches) list.push_back(WhenJson(when));
    PrintJson(out, list);
    return 0;
  }
  if (matches.empty()) out << "No matching minute in the next 400 years.\n";
  for (Date when : matches) out << IsoText(when).substr(0, 16) << "  " << kDays[Weekday(when) - 1] << "\n";
  return 0;
}

int Schemes(bool json, std::ostream& out) {
  const auto& schemes = SchemeRegistry::BuiltIn().Schemes();
  if (json) {
    Json list = Json::array();
    for (const auto& scheme : schemes) list.push_back({{"id", scheme.id}, {"summary", scheme.summary}});
    PrintJson(out, list);
    return 0;
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto& scheme : schemes) rows.push_back({scheme.id, scheme.summary});
  PrintTable(out, rows);
  return 0;
}

}  // namespace tw::console
