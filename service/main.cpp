#include <iostream>

#include "common/Clock.h"
#include "common/Strings.h"
#include "common/Version.h"
#include "platform/Environment.h"
#include "platform/EventLoop.h"
#include "platform/ProgramSetup.h"
#include "platform/ServiceControl.h"
#include "service/InstallDialog.h"
#include "service/ServiceHost.h"
#include "service/frmService.h"

int main(int argc, char** argv) {
  if (tw::AsksForVersion(argc, argv, true)) {
    std::cout << tw::VersionLine("TWService");
    return 0;
  }
  tw::platform::MakeCreatedFilesPrivate();
  const std::vector<std::string> args(argv + 1, argv + argc);
  tw::SystemClock clock;
  tw::platform::EventLoop loop;
  tw::ServiceHost host(tw::platform::ApplicationFolder(), tw::platform::DefaultSettingsPath(), clock, loop, loop);
  tw::platform::SystemdServiceControl control(loop, tw::platform::DefaultUnitSettings());
  tw::TerminalInstallDialog dialog;
  tw::frmService form(host, control, dialog, std::cerr);
  return form.Load(tw::Join(args, " "));
}
