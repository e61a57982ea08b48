#pragma once
// twctl job ...: add, change, list, show, preview and remove backup jobs.
#include <ostream>
#include <string>
#include <vector>

#include "common/Clock.h"
#include "console/ConsoleCommon.h"
#include "settings/TWSettings.h"

namespace tw::console {

// The options of "job add" and "job set", as typed.
struct JobOptions {
  std::string description, time, scheme, timeout, destination, backupLogId;
  std::vector<std::string> sources, addSources, removeSources;
  Switch suspended;
  std::string label, method, mode;
  Switch eject;
  Switch emailReport, printReport;
  std::string reminderTime;
  Switch reminderEmail, reminderBroadcast;
  Switch maintenance;
  std::string maintenanceSubject, maintenanceBody;
  std::string maintenanceOccurrence, maintenanceWeekly, maintenanceMonthly, maintenanceFirstWeekday,
      maintenanceLastWeekday, maintenanceDates;

  CLI::Option *descriptionOpt, *timeOpt, *schemeOpt, *timeoutOpt, *destinationOpt, *backupLogIdOpt, *sourcesOpt,
      *addSourcesOpt = nullptr, *removeSourcesOpt = nullptr, *labelOpt, *methodOpt, *modeOpt, *reminderTimeOpt,
      *maintenanceSubjectOpt, *maintenanceBodyOpt, *occurrenceOpt, *weeklyOpt, *monthlyOpt, *firstWeekdayOpt,
      *lastWeekdayOpt, *datesOpt;
};

// `changing`: the options of "job set", which change an existing job and so have no defaults and
// can add or remove single sources.
void RegisterJobOptions(CLI::App* command, JobOptions& options, bool changing);

int JobAdd(TWSettings& settings, const std::string& name, const JobOptions& options, std::ostream& out);
int JobSet(TWSettings& settings, const std::string& name, const JobOptions& options, std::ostream& out);
int JobList(TWSettings& settings, bool json, std::ostream& out);
int JobShow(TWSettings& settings, const std::string& name, bool json, std::ostream& out);
// Refuses a job that is running (IsRunning) unless `force`; withdraws a request that waits for it.
int JobRemove(TWSettings& settings, const std::string& applicationFolder, const std::string& name, bool force,
              std::ostream& out);
// For the next `days` scheduled times from now: whether the run goes ahead, its run date and the
// media values the job's scheme gives for it.
int JobPreview(TWSettings& settings, const std::string& name, int days, bool json, const Clock& clock,
               std::ostream& out);

}  // namespace tw::console
