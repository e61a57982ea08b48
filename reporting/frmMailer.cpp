#include "reporting/frmMailer.h"

#include "common/Error.h"

namespace tw {

void frmMailer::Mail(const std::string& strSubject, const std::string& body, int32_t& enmMailType,
                     const std::string& attachment) {
  try {
    // The outcome may come after this form has been let go: it keeps itself alive until then.
    auto self = shared_from_this();
    Mailer1_.Send(strSubject, body, enmMailType, attachment, [self] { self->Mailer1_SendSuccessful(); },
                  [self](const std::string& transcript) { self->Mailer1_SendFailed(transcript); });
  } catch (...) {
    logging_.ReportInternalError("20200", CurrentError("TWService"));
  }
}

void frmMailer::Mailer1_SendFailed(const std::string& transcriptPath) {
  try {
    if (!IgnoreEvents && SendFailed) SendFailed(transcriptPath);
  } catch (...) {
    logging_.ReportInternalError("20201", CurrentError("TWService"));
  }
  if (Finished) Finished();
}

void frmMailer::Mailer1_SendSuccessful() {
  try {
    if (!IgnoreEvents && SendSuccessful) SendSuccessful();
  } catch (...) {
    logging_.ReportInternalError("20202", CurrentError("TWService"));
  }
  if (Finished) Finished();
}

}  // namespace tw
