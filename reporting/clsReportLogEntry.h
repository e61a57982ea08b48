#pragma once
// One report log: a small UTF-16 text file per backup run with its times, job, outcome, label,
// computer, labelled extra values and the full report.
//   line 1, 2     TimeStart, TimeEnd (days since 1899-12-30, "." or "," as decimal point)
//   line 3, 4     JobName, JobDesc (escaped)
//   line 5        Status
//   line 6, 7     Label, Computer (escaped)
//   line 8        N, the number of extra fields, then N key and value lines (escaped)
//   the rest      the report exactly as held, to the end of the file
// Lines end in CR LF. Escaping: each CR LF becomes the character U+0001; a lone CR or LF, which
// older versions left as it was, reads as part of its line.
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "common/Date.h"

namespace tw {

class clsReportLogEntry {
 public:
  Date TimeStart = 0;
  Date TimeEnd = 0;
  std::string JobName;
  std::string JobDesc;
  // "Normal" for 0, "Errors" for 2, "Warnings" for anything else (1 is a time-out).
  std::string StatusString() const;
  int32_t Status = 0;
  std::string Label;
  std::string Computer;
  std::vector<std::string> ExtraFieldKeys() const;
  // An absent key reads as empty; writing one that exists replaces its value, else appends it.
  std::string ExtraField(const std::string& key) const;
  void ExtraField(const std::string& key, const std::string& value);
  std::string Report;
  const std::string& Filename() const { return filename_; }
  bool FullyLoaded() const { return fullyLoaded_; }

  // Reads the whole file (`filename` when not empty, else the current Filename). False when there
  // is no file name; a missing, unreadable or short file raises TWError.
  bool Load(const std::string& filename);
  // The header-only reading as it has always stood: it opens the file with the same create-and-
  // overwrite call as Save, which empties it, and then fails on its first read (raising TWError).
  // Nothing uses it.
  bool QuickLoad(const std::string& filename);
  // Chooses Filename in `directory` from the present time plus up to half a second at random:
  // "<days>.log", which sorts as text in the order of creation. Touches no file.
  void NewFile(const std::string& directory, Date now, double random);
  // Writes the file (creating or overwriting it); raises TWError when it cannot.
  bool Save() const;

 private:
  std::vector<std::pair<std::string, std::string>> extraFields_;
  std::string filename_;
  bool fullyLoaded_ = false;
};

}  // namespace tw
