#include "monitoring/Metrics.h"

#include <system_error>

#include "platform/Files.h"

namespace tw {
namespace {

const char* const kOutcomes[] = {"normal", "errors", "timed out", "missed", "none"};
const char* const kStates[] = {"running", "paused", "not running"};

// A label value: backslash, double quote and line feed are escaped.
std::string LabelValue(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\') out += "\\\\";
    else if (c == '"') out += "\\\"";
    else if (c == '\n') out += "\\n";
    else out += c;
  }
  return out;
}

std::string UnixTime(Date value) { return value == 0 ? "0" : std::to_string(UnixFromDate(value)); }

class Exposition {
 public:
  void Family(const std::string& name, const char* type, const std::string& help) {
    text_ += "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
  }
  void Sample(const std::string& name, const std::string& labels, const std::string& value) {
    text_ += name + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
  }
  std::string Text() const { return text_; }

 private:
  std::string text_;
};

std::string JobLabel(const JobState& job) { return "job=\"" + LabelValue(job.values.name) + "\""; }

void ServiceMetrics(Exposition& out, const MetricsInput& input) {
  out.Family("tarnwick_service_state", "gauge", "1 for the service's present state (running, paused, not running).");
  for (const char* state : kStates) {
    out.Sample("tarnwick_service_state", std::string("state=\"") + state + "\"",
               input.service.state == state ? "1" : "0");
  }
  out.Family("tarnwick_service_heartbeat_age_seconds", "gauge",
             "Seconds since the service's latest heartbeat; it writes one every ten seconds.");
  out.Sample("tarnwick_service_heartbeat_age_seconds", "",
             input.service.heartbeat == 0 ? "NaN" : std::to_string(SecondsBetween(input.service.heartbeat, input.now)));
}

void JobMetrics(Exposition& out, const MetricsInput& input) {
  const auto each = [&](const std::string& name, const char* type, const std::string& help, auto value) {
    out.Family(name, type, help);
    for (const JobState& job : input.jobs) out.Sample(name, JobLabel(job), value(job));
  };
  each("tarnwick_job_last_start_timestamp_seconds", "gauge", "Start of the job's last run (0 for none).",
       [](const JobState& j) { return UnixTime(j.values.lastRunStart); });
  each("tarnwick_job_last_end_timestamp_seconds", "gauge", "End of the job's last run (0 for none).",
       [](const JobState& j) { return UnixTime(j.values.lastRunEnd); });
  each("tarnwick_job_last_duration_seconds", "gauge", "How long the job's last run took.", [](const JobState& j) {
    return j.values.lastRunStatus == -1 ? std::string("0")
                                        : std::to_string(SecondsBetween(j.values.lastRunStart, j.values.lastRunEnd));
  });
  out.Family("tarnwick_job_last_outcome", "gauge",
             "1 for the job's last outcome: normal, errors, timed out, missed or none.");
  for (const JobState& job : input.jobs) {
    const std::string last = job.LastOutcome();
    for (const char* outcome : kOutcomes) {
      out.Sample("tarnwick_job_last_outcome", JobLabel(job) + ",outcome=\"" + outcome + "\"",
                 last == outcome ? "1" : "0");
    }
  }
  each("tarnwick_job_running", "gauge", "1 while a run of the job is under way and within its time-out.",
       [](const JobState& j) { return std::string(j.running ? "1" : "0"); });
  each("tarnwick_job_timed_out", "gauge", "1 while a run of the job is past its time-out.",
       [](const JobState& j) { return std::string(j.timedOut ? "1" : "0"); });
  each("tarnwick_job_next_run_timestamp_seconds", "gauge",
       "The job's next run that goes ahead (0 for none: suspended, or none within a year).",
       [](const JobState& j) { return j.nextRun ? UnixTime(*j.nextRun) : std::string("0"); });
  each("tarnwick_job_missed_runs_total", "counter", "Scheduled runs missed while the service was stopped or paused.",
       [](const JobState& j) { return std::to_string(j.values.missedRuns); });
  each("tarnwick_job_last_missed_timestamp_seconds", "gauge", "The latest missed run's time (0 for none).",
       [](const JobState& j) { return UnixTime(j.values.lastMissed); });
}

}  // namespace

MetricsInput ReadMetricsInput(TWSettings& settings, const std::string& applicationFolder, Date now) {
  MetricsInput input;
  input.now = now;
  input.service = ViewOfService(settings.Store(), now);
  input.jobs = ReadJobStates(settings, applicationFolder, now);
  input.mailsWaiting = settings.Store().CountReportMails("waiting");
  input.mailsGivenUp = settings.Store().CountReportMails("given up");
  return input;
}

std::string MetricsText(const MetricsInput& input) {
  Exposition out;
  ServiceMetrics(out, input);
  JobMetrics(out, input);
  out.Family("tarnwick_report_mails_waiting", "gauge", "Report mails waiting for a re-send.");
  out.Sample("tarnwick_report_mails_waiting", "", std::to_string(input.mailsWaiting));
  out.Family("tarnwick_report_mails_given_up", "gauge", "Report mails given up after eleven re-sends or replaced.");
  out.Sample("tarnwick_report_mails_given_up", "", std::to_string(input.mailsGivenUp));
  return out.Text();
}

std::string WriteMetricsFile(const std::string& path, const std::string& text) {
  if (const int error = platform::WriteFileAtomically(path, text, 0644)) {
    return "the metrics file " + path + " cannot be written: " + std::generic_category().message(error);
  }
  return "";
}

}  // namespace tw
