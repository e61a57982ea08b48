#include "reporting/clsReportLogs.h"

#include <algorithm>
#include <filesystem>
#include <random>

#include "common/Error.h"
#include "common/Strings.h"
#include "platform/Files.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

bool IsReportLog(const std::string& name) { return name.size() >= 4 && ToLower(name.substr(name.size() - 4)) == ".log"; }

}  // namespace

clsReportLogs::clsReportLogs(const std::string& applicationFolder, TWSettings& settings, const Clock& clock,
                             std::function<double()> random)
    : directory_(applicationFolder + "/Reports"), settings_(settings), clock_(clock), random_(std::move(random)) {
  if (!random_) {
    auto generator = std::make_shared<std::mt19937_64>(std::random_device{}());
    random_ = [generator] { return std::uniform_real_distribution<double>(0.0, 1.0)(*generator); };
  }
}

int clsReportLogs::IComparator_Compare(const std::string& a, const std::string& b) {
  if (a < b) return 1;
  if (a == b) return 0;
  return -1;
}

void clsReportLogs::Clear() {
  std::error_code error;
  for (fs::directory_iterator it(directory_, error), end; !error && it != end; it.increment(error)) {
    std::error_code ignored;
    if (IsReportLog(it->path().filename().string())) fs::remove(it->path(), ignored);
  }
}

const std::vector<std::string>& clsReportLogs::ReportLogNames() {
  // Newest first: the names are day numbers, so the greater name is the later report.
  const auto newerFirst = [](const std::string& a, const std::string& b) { return IComparator_Compare(a, b) < 0; };
  if (watch_ && watchedDirectory_ == directory_) {
    if (const auto changes = watch_->Changes()) {
      for (const auto& change : *changes) {
        if (!IsReportLog(change.name)) continue;
        // A change may already be in the listing when it happened while the folder was read.
        const auto at = std::lower_bound(names_.begin(), names_.end(), change.name, newerFirst);
        const bool listed = at != names_.end() && *at == change.name;
        if (change.added && !listed) names_.insert(at, change.name);
        if (!change.added && listed) names_.erase(at);
      }
      return names_;
    }
  }
  // The watch begins before the reading, so that nothing done meanwhile is missed.
  watch_ = std::make_unique<platform::FolderWatch>(directory_);
  watchedDirectory_ = directory_;
  names_.clear();
  auto names = platform::FolderNames(directory_);
  if (!names) {
    watch_.reset();
    // The folder is made with the first report: until then there are none.
    std::error_code error;
    if (!fs::exists(directory_, error) && !error) return names_;
    throw TWError(76, "Path not found: " + directory_, "TWService");
  }
  for (auto& name : *names) {
    if (IsReportLog(name)) names_.push_back(std::move(name));
  }
  std::stable_sort(names_.begin(), names_.end(), newerFirst);
  return names_;
}

std::vector<clsReportLogEntry> clsReportLogs::GetSummaries(int32_t maxCount, std::vector<std::string>* skipped) {
  const std::vector<std::string>& names = ReportLogNames();
  // 0 means all of them; a negative count none.
  const size_t wanted = maxCount == 0 ? names.size() : static_cast<size_t>(std::max(maxCount, 0));
  std::vector<clsReportLogEntry> entries;
  for (size_t i = 0; i < names.size() && entries.size() < wanted; ++i) {
    clsReportLogEntry entry;
    try {
      if (entry.Load(directory_ + "/" + names[i])) entries.push_back(std::move(entry));
    } catch (const TWError& e) {
      if (skipped != nullptr) skipped->push_back(names[i] + ": " + e.Description);
    }
  }
  return entries;
}

void clsReportLogs::SaveNewEntry(clsReportLogEntry& entry) {
  platform::CreatePrivateFolder(directory_);  // a failure shows when the report is saved
  const Date now = clock_.Now();
  settings_.General().Console().LatestReportTime(now);
  const double random = random_();
  entry.NewFile(directory_, now, random);
  // Runs launched together end together, and the random part alone may give two of them one name;
  // a later report moves on a millisecond at a time rather than overwrite an earlier one.
  constexpr double kMillisecond = 1.0 / 86400 / 1000;
  std::error_code error;
  for (int step = 1; step <= 1000 && fs::exists(entry.Filename(), error); ++step) {
    entry.NewFile(directory_, now + step * kMillisecond, random);
  }
  entry.Save();
}

}  // namespace tw
