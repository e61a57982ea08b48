#pragma once
// Media schemes: what a job's run on a given date does. A scheme says whether the scheduled run
// goes ahead, which media label to load, full or incremental, overwrite or append, whether to
// eject afterwards, and whether to remind someone to load the media. Jobs name their scheme by
// identifier ("TWSchemes.Daily"); the registry creates it. Use: attach the job, then ask for a
// date.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/Date.h"
#include "settings/TWSettings.h"

namespace tw {

// Backup methods and modes, as the executor reads them.
namespace backup {
constexpr int32_t kFull = 0;
constexpr int32_t kIncremental = 1;
constexpr int32_t kOverwrite = 0;
constexpr int32_t kAppend = 1;
}  // namespace backup

struct MediaValues {
  std::string Label;
  int32_t Method = backup::kFull;
  int32_t Mode = backup::kOverwrite;
  bool Eject = false;
};

class IScheme {
 public:
  virtual ~IScheme() = default;
  // The first call: the job the later answers are for.
  virtual void AttachJob(const clsJob& job) = 0;
  // Whether a media reminder is needed for the run on `when`'s day.
  virtual bool ReminderNeeded(Date when) = 0;
  // Non-zero when the scheduled run for the run date `when` goes ahead.
  virtual int32_t ScheduledRun(Date when) = 0;
  virtual std::string MediaLabel(Date when) = 0;
  virtual int32_t BackupMethod(Date when) = 0;
  virtual int32_t BackupMode(Date when) = 0;
  virtual bool Eject(Date when) = 0;
};

struct SchemeInfo {
  std::string id;
  std::string summary;  // one line for "twctl schemes"
  std::function<std::unique_ptr<IScheme>()> create;
};

class SchemeRegistry {
 public:
  // The schemes that ship with the product.
  static const SchemeRegistry& BuiltIn();

  explicit SchemeRegistry(std::vector<SchemeInfo> schemes) : schemes_(std::move(schemes)) {}
  // Identifiers compare without regard to case. An unknown one raises error 429.
  std::unique_ptr<IScheme> Create(const std::string& id) const;
  // The identifier as the registry spells it, or empty when unknown.
  std::string CanonicalId(const std::string& id) const;
  const std::vector<SchemeInfo>& Schemes() const { return schemes_; }

 private:
  std::vector<SchemeInfo> schemes_;
};

// What a name means in method and mode texts: "full", "incremental", "overwrite", "append".
std::string MethodName(int32_t method);
std::string ModeName(int32_t mode);

}  // namespace tw
