#pragma once
#include <string>

namespace tw::platform {

// Photographs the whole X display `display` (":0") into a PNG file. False, with the reason in
// `error`, when there is no display to reach or the picture cannot be written.
bool CaptureScreen(const std::string& display, const std::string& pngPath, std::string& error);

}  // namespace tw::platform
