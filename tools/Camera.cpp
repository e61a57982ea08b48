#include "tools/Camera.h"

#include "platform/Launch.h"
#include "platform/Screen.h"

namespace tw::tools {

int RunCamera(const std::string& display, const std::string& picture, std::ostream& err) {
  if (picture.empty()) {
    err << "TWCam: TARNWICK_SCREENSHOT names no picture file\n";
    return 2;
  }
  if (display.empty()) {
    err << "TWCam: no X display (DISPLAY is not set)\n";
    return 1;
  }
  std::string problem;
  if (!platform::CaptureScreen(display, picture, problem)) {
    err << "TWCam: " << problem << "\n";
    return 1;
  }
  // The picture is there: whoever started us through the rights launcher may look for it.
  platform::SignalReady();
  return 0;
}

}  // namespace tw::tools
