#pragma once
// The form that hosts one e-mail: Mail hands it to the Mailer; the outcome comes back as
// SendFailed (with the transcript's path) or SendSuccessful, unless IgnoreEvents has been set.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "logging/modLogging.h"
#include "reporting/Mailer.h"

namespace tw {

class frmMailer : public std::enable_shared_from_this<frmMailer> {
 public:
  frmMailer(Mailer& mailer, modLogging& logging) : Mailer1_(mailer), logging_(logging) {}

  // Location code 20200.
  void Mail(const std::string& strSubject, const std::string& body, int32_t& enmMailType, const std::string& attachment);

  bool IgnoreEvents = false;
  std::function<void(const std::string& transcriptPath)> SendFailed;
  std::function<void()> SendSuccessful;
  // Called after either outcome, whether or not its event was raised.
  std::function<void()> Finished;

 private:
  void Mailer1_SendFailed(const std::string& transcriptPath);  // location code 20201
  void Mailer1_SendSuccessful();                               // location code 20202

  Mailer& Mailer1_;
  modLogging& logging_;
};

}  // namespace tw
