#include "tools/Executor.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include "common/Error.h"
#include "common/NumberText.h"
#include "common/Strings.h"
#include "common/Utf16.h"
#include "platform/FileLock.h"
#include "platform/HostName.h"
#include "platform/Launch.h"
#include "platform/Process.h"
#include "platform/SafeFiles.h"
#include "scheduling/RunMarker.h"
#include "scheduling/Schemes.h"
#include "settings/TWSettings.h"

namespace tw::tools {
namespace {

namespace fs = std::filesystem;

const char* const kCrLf = "\r\n";
const char* const kUsage =
    "Usage: TWExecutor --backup-log-id ID --run RUN [logging|nologon|zloggingandnologon]\n"
    "Performs the backup run RUN of the job whose backup log id is ID. Its marker, BackupLog-ID.txt in\n"
    "the application folder, must name that run; the service writes it before it starts the executor.\n";

struct Claim {
  std::unique_ptr<platform::LockedFile> marker;
  std::string backupLogId;
};

// Claims the marker of this run and no other: the file must still name the run. Claiming locks it
// and writes over the run's line, so that nothing else takes it.
std::optional<Claim> ClaimMarker(const std::string& folder, const std::string& backupLogId, const std::string& run,
                                 std::string& problem) {
  const std::string path = runmarker::PathFor(folder, backupLogId);
  auto marker = platform::LockedFile::TryLock(path);
  if (!marker) {
    problem = "the marker " + path + " of this run is missing or held by another program";
    return std::nullopt;
  }
  const auto named = runmarker::UnclaimedRun(Utf8FromUtf16Bytes(marker->Read(4096)));
  if (!named || *named != run) {
    problem = "the marker " + path + " does not wait for the run " + run + (named ? " but for " + *named : "");
    return std::nullopt;
  }
  if (!marker->Replace(Utf16FileBytes(runmarker::ClaimedText(run)))) {
    problem = "the marker " + path + " cannot be written";
    return std::nullopt;
  }
  return Claim{std::move(marker), backupLogId};
}

bool IsTape(const std::string& path) {
  std::error_code error;
  return fs::is_character_file(path, error);
}

std::string Stamp(Date when) {
  const DateParts p = SplitDate(when);
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d_%02d%02d%02d", p.year, p.month, p.day, p.hour, p.minute, p.second);
  return text;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (const auto& line : Split(text, '\n')) {
    const std::string trimmed(TrimWhitespace(line));
    if (!trimmed.empty()) lines.push_back(trimmed);
  }
  return lines;
}

// Runs mt on the tape; a failure is an error of the run.
void Tape(const std::string& device, const std::string& operation, BackupOutcome& outcome) {
  const auto result = platform::RunCommand({"mt", "-f", device, operation});
  if (!result.started) {
    outcome.errors.push_back("mt could not be started (" + result.error + "): install mt-st to use tape devices");
  } else if (result.exitCode != 0) {
    outcome.errors.push_back("mt -f " + device + " " + operation + " failed: " + Join(Lines(result.output), " "));
  }
}

// What tar says about its own work rather than about the data.
bool IsRemark(const std::string& line) {
  for (const char* remark : {"Removing leading `/'", "Exiting with failure status", ": Directory is new",
                             ": Directory has been renamed"}) {
    if (line.find(remark) != std::string::npos) return true;
  }
  return false;
}

bool IsErrorMessage(const std::string& line) {
  for (const char* sign : {"Cannot ", "Error", "error", "Permission denied", "No space left"}) {
    if (line.find(sign) != std::string::npos) return true;
  }
  return false;
}

// Sorts what tar said into warnings and errors, each once, and picks out its byte count.
void ReadTarMessages(const platform::CommandResult& result, BackupOutcome& outcome) {
  std::vector<std::string> seen;
  for (const auto& line : Lines(result.output)) {
    if (line.rfind("Total bytes written: ", 0) == 0) {
      outcome.bytesWritten = static_cast<int64_t>(LeadingNumber(line.substr(21)));
      continue;
    }
    if (IsRemark(line) || std::find(seen.begin(), seen.end(), line) != seen.end()) continue;
    seen.push_back(line);
    (IsErrorMessage(line) ? outcome.errors : outcome.warnings).push_back(line);
  }
  if (result.exitCode >= 2 && outcome.errors.empty()) {
    outcome.errors.push_back("tar ended with status " + std::to_string(result.exitCode));
  }
}

// Nothing of the run is written when one of its folders is unsafe or cannot be made.
void NotWritten(BackupOutcome& outcome, const std::string& problem) {
  outcome.errors.push_back("The backup was not written: " + problem + ".");
}

// <destination>/<id>, checked: the destination as the administrator named it, and the job's own
// folder in it.
std::optional<platform::CheckedFolder> OpenJobFolder(const BackupPlan& plan, BackupOutcome& outcome) {
  std::string problem;
  if (auto destination = platform::CheckedFolder::OpenConfigured(plan.destination, problem)) {
    if (auto folder = destination->OpenOwnChild(plan.backupLogId, problem)) return folder;
  }
  NotWritten(outcome, problem);
  return std::nullopt;
}

// The archive under a name no file has yet. A second run of the job within the same second, or a
// name planted beforehand, gets "_2", "_3", ... after the time, so the names still sort in the
// order of the runs.
std::optional<platform::OpenFile> CreateArchive(const platform::CheckedFolder& folder, const std::string& stem,
                                                const std::string& ending, BackupOutcome& outcome) {
  std::string problem;
  for (int number = 1; number < 100; ++number) {
    const std::string name = stem + (number == 1 ? "" : "_" + std::to_string(number)) + ending;
    bool taken = false;
    if (auto file = folder.CreateNew(name, problem, taken)) {
      outcome.archive = folder.Path() + "/" + name;
      return file;
    }
    if (!taken) break;
    problem = "every name for the archive " + folder.Path() + "/" + stem + ending + " is taken";
  }
  NotWritten(outcome, problem);
  return std::nullopt;
}

// The job's snapshot in the Snapshots folder: <id>.snar, the state after the last successful run;
// tar updates a working copy (<id>.snar.new) and lists the files it took in <id>.list.
// A full run starts a new snapshot; an incremental one continues the last. The snapshot is
// replaced only when tar succeeded, so a failed run never hides changes from the next one.
struct Snapshot {
  platform::CheckedFolder folder;
  std::string id;
  platform::OpenFile working, index;

  std::string Name() const { return id + ".snar"; }
  std::string Working() const { return id + ".snar.new"; }
  std::string Index() const { return id + ".list"; }
  void Keep(BackupOutcome& outcome) {
    std::string problem;
    if (!folder.Rename(Working(), Name(), problem)) outcome.errors.push_back("The snapshot was not kept: " + problem + ".");
    folder.Remove(Index());
  }
  void Discard() const {
    folder.Remove(Working());
    folder.Remove(Index());
  }
};

std::optional<Snapshot> PrepareSnapshot(const BackupPlan& plan, bool incremental, BackupOutcome& outcome) {
  std::string problem;
  const fs::path path(plan.snapshotFolder);
  std::optional<platform::CheckedFolder> folder;
  if (auto parent = platform::CheckedFolder::OpenConfigured(path.parent_path().string(), problem, true)) {
    folder = parent->OpenOwnChild(path.filename().string(), problem);
  }
  if (!folder) {
    NotWritten(outcome, problem);
    return std::nullopt;
  }
  Snapshot snapshot{std::move(*folder), plan.backupLogId, {}, {}};
  // A working copy or index still there is left by a run that was killed.
  snapshot.Discard();
  bool taken = false;
  auto working = snapshot.folder.CreateNew(snapshot.Working(), problem, taken);
  auto index = working ? snapshot.folder.CreateNew(snapshot.Index(), problem, taken) : std::nullopt;
  if (!working || !index) {
    snapshot.Discard();
    NotWritten(outcome, problem);
    return std::nullopt;
  }
  snapshot.working = std::move(*working);
  snapshot.index = std::move(*index);
  if (!incremental) return snapshot;
  bool missing = false;
  auto last = snapshot.folder.OpenExisting(snapshot.Name(), problem, missing);
  if (missing) {
    outcome.notes.push_back("No earlier run to build on: this incremental backup holds everything.");
  } else if (!last || !snapshot.working.CopyFrom(*last)) {
    if (last) problem = "cannot copy " + snapshot.folder.Path() + "/" + snapshot.Name();
    snapshot.Discard();
    NotWritten(outcome, problem);
    return std::nullopt;
  }
  return snapshot;
}

std::string Duration(Date start, Date end) {
  const int64_t seconds = std::max<int64_t>(0, SecondsBetween(start, end));
  char text[32];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
  return text;
}

std::string ComputerName() {
  char buffer[256] = {};
  if (platform::GetHostName(buffer, sizeof buffer - 1) != 0) return "(unknown)";
  const std::string name = buffer;
  return name.substr(0, name.find('.'));
}

// A run that failed after claiming its marker must not leave the status at -2: the service would
// wait for it until the job's time-out.
void MarkFailed(const std::string& settingsPath, const std::string& backupLogId) {
  try {
    TWSettings settings(settingsPath);
    if (auto job = settings.General().FindJobByBackupLogId(backupLogId)) job->RunStatus(2);
  } catch (...) {
    // The store itself is out of reach; the service's time-out ends the run.
  }
}

}  // namespace

BackupOutcome PerformBackup(const BackupPlan& plan, Date start) {
  BackupOutcome outcome;
  if (plan.sources.empty()) {
    outcome.errors.push_back("The job has no sources to back up (twctl job set " + plan.jobName + " --source PATH).");
    return outcome;
  }
  if (plan.destination.empty()) {
    outcome.errors.push_back("The job has no destination (twctl job set " + plan.jobName + " --destination PATH).");
    return outcome;
  }
  const bool tape = IsTape(plan.destination);
  outcome.tape = tape;
  const bool incremental = plan.method == backup::kIncremental;
  std::optional<platform::CheckedFolder> jobFolder;
  if (tape) {
    outcome.archive = plan.destination;
    Tape(plan.destination, plan.mode == backup::kAppend ? "eod" : "rewind", outcome);
    if (!outcome.ok()) return outcome;
  } else {
    jobFolder = OpenJobFolder(plan, outcome);
    if (!jobFolder) return outcome;
  }
  auto snapshot = PrepareSnapshot(plan, incremental, outcome);
  if (!snapshot) return outcome;
  std::optional<platform::OpenFile> archive;
  if (!tape) {
    archive = CreateArchive(*jobFolder, plan.backupLogId + "-" + Stamp(start),
                            incremental ? "-incremental.tar.gz" : "-full.tar.gz", outcome);
    if (!archive) {
      snapshot->Discard();
      return outcome;
    }
  }

  // tar gets the files it writes as open descriptors: a name could be swapped for a link
  // between our check and its open.
  platform::CommandOptions options;
  auto handOver = [&options](const platform::OpenFile& file) {
    options.inheritedFds.push_back(file.Fd());
    return "/dev/fd/" + std::to_string(2 + options.inheritedFds.size());
  };
  std::vector<std::string> command{"tar", "--create", "--file=" + (tape ? plan.destination : handOver(*archive))};
  command.push_back("--listed-incremental=" + handOver(snapshot->working));
  command.push_back("--index-file=" + handOver(snapshot->index));
  command.insert(command.end(), {"--verbose", "--totals"});
  if (!tape) command.push_back("--gzip");
  command.push_back("--");
  command.insert(command.end(), plan.sources.begin(), plan.sources.end());
  const auto result = platform::RunCommand(command, options);
  if (!result.started) {
    outcome.errors.push_back("tar could not be started (" + result.error + "): GNU tar is needed");
    if (archive) jobFolder->Remove(fs::path(outcome.archive).filename().string());
    snapshot->Discard();
    return outcome;
  }
  ReadTarMessages(result, outcome);
  for (const auto& line : Split(snapshot->index.ReadAll().value_or(""), '\n')) {
    if (line.empty() || line.back() == '/') continue;  // folders are not counted
    ++outcome.files;
    if (plan.listFiles) outcome.fileList.push_back(line);
  }
  if (result.exitCode <= 1) {
    snapshot->Keep(outcome);
  } else {
    snapshot->Discard();
  }
  if (archive) outcome.archiveBytes = archive->Size();
  if (tape && plan.eject) Tape(plan.destination, "offline", outcome);
  return outcome;
}

std::string ComposeReport(const BackupPlan& plan, const BackupOutcome& outcome, Date start, Date end) {
  std::string r = "Tarnwick backup report";
  r += kCrLf;
  auto line = [&](const std::string& label, const std::string& value) { r += label + ": " + value + kCrLf; };
  auto list = [&](const std::string& label, const std::vector<std::string>& items) {
    line(label, items.empty() ? "none" : std::to_string(items.size()));
    for (const auto& item : items) r += "  " + item + kCrLf;
  };
  line("Job", plan.jobDescription.empty() ? plan.jobName : plan.jobName + " - " + plan.jobDescription);
  line("Computer", plan.computer);
  line("Started", IsoText(start));
  line("Finished", IsoText(end));
  line("Duration", Duration(start, end));
  line("Method", MethodName(plan.method));
  line("Media", "label \"" + plan.label + "\", " + ModeName(plan.mode) +
                    (outcome.tape ? (plan.eject ? ", ejected afterwards" : ", not ejected")
                                  : ", a new archive in a folder"));
  if (!plan.options.empty()) line("Options", plan.options);
  list("Sources", plan.sources);
  line("Destination", plan.destination);
  if (!outcome.archive.empty()) line("Archive", outcome.archive);
  line("Files backed up", std::to_string(outcome.files));
  line("Bytes written", std::to_string(outcome.bytesWritten));
  if (outcome.archiveBytes >= 0) line("Archive size", std::to_string(outcome.archiveBytes) + " bytes");
  for (const auto& note : outcome.notes) r += note + kCrLf;
  list("Warnings", outcome.warnings);
  list("Errors", outcome.errors);
  if (plan.listFiles) list("Files", outcome.fileList);
  r += outcome.ok() ? "Result: Backup completed normally." : "Result: Backup encountered errors.";
  r += kCrLf;
  return r;
}

int RunExecutor(const std::vector<std::string>& args, const ExecutorEnvironment& environment, std::ostream& out,
                std::ostream& err) {
  std::string option, backupLogId, run;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--help" || args[i] == "-h") {
      out << kUsage;
      return 0;
    }
    if ((args[i] == "--backup-log-id" || args[i] == "--run") && i + 1 < args.size()) {
      (args[i] == "--run" ? run : backupLogId) = args[i + 1];
      ++i;
    } else {
      option = args[i];
    }
  }
  if (run.empty() || !runmarker::IsSafeBackupLogId(backupLogId)) {
    err << "TWExecutor: the service starts it as TWExecutor --backup-log-id ID --run RUN [OPTION]; "
        << (run.empty() ? "no run was given" : "\"" + backupLogId + "\" is no backup log id") << "\n"
        << kUsage;
    return 2;
  }
  std::string problem;
  auto claim = ClaimMarker(environment.applicationFolder, backupLogId, run, problem);
  if (!claim) {
    err << "TWExecutor: " << problem << "\n";
    return 2;
  }
  try {
    TWSettings settings(environment.settingsPath);
    auto job = settings.General().FindJobByBackupLogId(claim->backupLogId);
    if (!job) {
      claim->marker->Replace(Utf16FileBytes("Tarnwick backup report\r\nNo backup job uses the backup log id \"" +
                                            claim->backupLogId + "\".\r\nResult: Backup encountered errors.\r\n"));
      err << "TWExecutor: no backup job uses the backup log id \"" << claim->backupLogId << "\"\n";
      return 2;
    }
    // -2 before anything else: the service's launcher must never see the last run's status.
    job->RunStatus(-2);
    platform::SignalReady();

    BackupPlan plan;
    plan.jobName = job->Name();
    plan.jobDescription = job->Description();
    plan.backupLogId = claim->backupLogId;
    plan.computer = ComputerName();
    plan.sources = job->Sources();
    plan.destination = job->Destination().Path();
    // The media values the launch chose for this run.
    plan.method = job->RunBackupMethod();
    plan.mode = job->RunBackupMode();
    plan.eject = job->RunEject();
    plan.label = job->RunTapeLabel();
    plan.options = option;
    plan.listFiles = option == "logging" || option == "zloggingandnologon";
    plan.snapshotFolder = environment.applicationFolder + "/Snapshots";

    const Date start = environment.clock.Now();
    const BackupOutcome outcome = PerformBackup(plan, start);
    const std::string report = ComposeReport(plan, outcome, start, environment.clock.Now());
    if (!claim->marker->Replace(Utf16FileBytes(report))) err << "TWExecutor: the report could not be written\n";
    try {
      job->RunStatus(outcome.ok() ? 1 : 2);
    } catch (...) {
      // A job removed while it ran has no status to set; the service reads the result from the
      // report, which stays as written.
      if (job->Exists()) throw;
      err << "TWExecutor: the backup job was removed while it ran\n";
    }
    return outcome.ok() ? 0 : 1;
  } catch (...) {
    const std::string problem = CurrentError("TWExecutor").Description;
    claim->marker->Replace(Utf16FileBytes("Tarnwick backup report\r\nThe backup could not run: " + problem +
                                          "\r\nResult: Backup encountered errors.\r\n"));
    err << "TWExecutor: " << problem << "\n";
    MarkFailed(environment.settingsPath, claim->backupLogId);
    return 2;
  }
}

}  // namespace tw::tools
