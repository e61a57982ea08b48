#pragma once
// One print-out of a report. The request leaves the subject and the body in the spool folder,
// where TWPrintOut picks them up and hands them to the printer.
#include <string>

#include "common/Clock.h"

namespace tw {

class clsPrintRequest {
 public:
  // `spoolFolder` is <application folder>/Spool; it is created when missing.
  clsPrintRequest(std::string spoolFolder, const Clock& clock) : spoolFolder_(std::move(spoolFolder)), clock_(clock) {}

  // Writes one spool file, "TWPrint-<yyyymmddhhmmss>-<random>.txt": the subject on the first
  // line, an empty line, then the body as it stands. The file appears whole (it is written
  // under a hidden name and renamed), so the print-out program never reads half of it. Returns
  // its path; raises TWError when it cannot be written.
  std::string Print(const std::string& subject, const std::string& body);

  // Reads a spool file back into subject and body.
  static bool ReadSpoolFile(const std::string& path, std::string& subject, std::string& body);

 private:
  std::string spoolFolder_;
  const Clock& clock_;
};

}  // namespace tw
