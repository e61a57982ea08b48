#pragma once
// TWCam, the camera: photographs the X display named by DISPLAY into the PNG file named by
// TARNWICK_SCREENSHOT. Without a display it writes nothing and exits non-zero.
#include <ostream>
#include <string>

namespace tw::tools {

int RunCamera(const std::string& display, const std::string& picture, std::ostream& err);

}  // namespace tw::tools
