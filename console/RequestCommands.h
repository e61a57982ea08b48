#pragma once
// twctl request (test backup, run now, reminder test), twctl answers and twctl status: the console
// asks the running service for something through the settings store and follows its answers.
#include <optional>
#include <ostream>
#include <string>

#include "common/Clock.h"
#include "console/Twctl.h"
#include "settings/TWSettings.h"

namespace tw::console {

// A request waits in the store until the service's next poll tick takes it. A request still
// waiting is refused unless `replace` is given, since all requests share the job name. A test
// backup or run of a job that is running (its marker in `applicationFolder`) is refused.
// Each request says plainly when no service is running to serve it: it waits in the store.
int RequestTestBackup(TWSettings& settings, const std::string& applicationFolder, const std::string& job,
                      bool replace, const Clock& clock, std::ostream& out);
// `date` is "YYYY-MM-DD"; today when not given.
int RequestRun(TWSettings& settings, const std::string& applicationFolder, const std::string& job,
               const std::optional<std::string>& date, bool replace, const Clock& clock, std::ostream& out);
int RequestTestReminder(TWSettings& settings, const std::string& job, bool byEmail, bool byBroadcast, bool replace,
                        const Clock& clock, std::ostream& out);

// Withdraws the request that still waits for the service when it names `job`, as the job is
// removed; a test backup or reminder test gets a "RESULT: " answer line, so that whoever follows
// the answers is not left waiting. What was withdrawn, in words, or empty.
std::string WithdrawRequestFor(TWSettings& settings, const std::string& job);

struct AnswersOptions {
  bool follow = false;
  bool all = false;           // from the first line kept, not from the latest request
  bool json = false;          // without follow: the lines as one JSON list
  int timeoutSeconds = 600;   // --follow only
  int pollMilliseconds = 500;
};

// Prints the service's answer lines. With `follow`, waits for new ones and ends at the first
// "RESULT: " line: 0 for a success, 1 for anything else, a time-out, or a service that is not
// running (its heartbeat stopped), which it tells at once.
int Answers(TWSettings& settings, const AnswersOptions& options, const Clock& clock, std::ostream& out,
            std::ostream& err);

// The service's state and each job's next run, run under way and last outcome. Exit 0 when the
// service runs and every job is well, 1 when a job's last outcome was not normal or a run is past
// its time-out, 3 when the service is not running or paused.
int Status(TWSettings& settings, const ConsoleEnvironment& environment, bool json, const Clock& clock,
           std::ostream& out);

// The metrics in the Prometheus text format, on standard output or written whole to `textfile`.
int Metrics(TWSettings& settings, const ConsoleEnvironment& environment, const std::optional<std::string>& textfile,
            const Clock& clock, std::ostream& out);

}  // namespace tw::console
