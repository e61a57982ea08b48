#include "execution/HungProcessRecovery.h"

#include <filesystem>

#include "common/Error.h"
#include "execution/RightsLaunch.h"
#include "execution/clsAdvShell.h"

namespace tw {

bool HungProcessRecovery::KillPreviousBackup(const std::string& processArgument) {
  std::string trace = "1: Start";
  try {
    clsAdvShell shell(host_);
    trace = "2: Created shell";
    const std::string tool = host_.applicationFolder + "/twprocess";
    const int32_t found = shell.AdvShell(tool, processArgument, "", 0, false, true);
    trace = "3: Executed process with return " + std::to_string(found);
    if (found <= 0) return false;

    trace = "4: Before screenshot";
    const std::string picture = CaptureScreenshot();
    trace = "5: After screenshot";
    shell.AdvShell(tool, processArgument + " /kill", "", 0, false, true);
    trace = "6: After kill";
    host_.logging.Logs().AddLogSimple(
        1, "Previous backup process killed",
        "A previous backup processes was detected, and has been killed. It's possible that the previous backup "
        "program has hung. A screenshot was captured prior to killing it - refer to the attachment.",
        2, picture);
    trace = "7: After logging the termination";
    return true;
  } catch (...) {
    const TWError error = CurrentError("TWService");
    host_.logging.ReportInternalError("20009", error.Number, error.Description + "\r\n" + trace, error.Source);
    return false;
  }
}

std::string HungProcessRecovery::CaptureScreenshot() {
  lastScreenshot_.clear();
  try {
    const std::string picture =
        host_.logging.Logs().MakeAttachmentDirectory() + "/" + FormatStamp(host_.clock.Now()) + ".png";
    const RightsLaunch launch = RightsLaunchOf(host_.settings.General().Identity(), host_.applicationFolder + "/TWCam");
    clsAdvShell shell(host_);
    // The camera learns where to put the picture from its environment.
    shell.Environment("TARNWICK_SCREENSHOT", picture);
    shell.Input(launch.input);
    shell.AdvShell(host_.applicationFolder + "/DesktopRights", launch.arguments, "", 0, false, true);
    std::error_code error;
    if (std::filesystem::exists(picture, error)) lastScreenshot_ = picture;
    return lastScreenshot_;
  } catch (...) {
    host_.logging.ReportInternalError("20017", CurrentError("TWService"));
    return {};
  }
}

}  // namespace tw
