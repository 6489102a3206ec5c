#include "platform/linux/report/LocalDiagnostics.h"

#include "core/quality/CallDetector.h"
#include "platform/linux/app/SystemInfo.h"
#include "platform/linux/hotkeys/X11Hotkeys.h"
#include "platform/linux/mediakeys/LinuxMediaKeySource.h"

namespace wh::platform {

Diagnose::Sources diagnoseSources(const BuildInfo& build, Settings& settings, InputPinner& pinner,
                                  BluezUPowerBatterySources& batteries) {
  Diagnose::Sources sources;
  sources.build = build;
  sources.systemVersion = systemVersion();
  sources.preferredMicrophone = [&pinner] { return pinner.preferredMicrophone(); };
  sources.meetingApps = CallDetector::meetingApps(settings);
  sources.batteryEntries = [&batteries] { return batteries.readLive(); };
  sources.inputAccess = inputAccess();
  sources.hotkeysProblem = X11Hotkeys::sessionProblem();
  if (!sources.hotkeysProblem) sources.hotkeysProblem = X11Hotkeys::sessionLimitation();
  sources.mediaKeysProblem = LinuxMediaKeySource::sessionProblem();
  return sources;
}

}  // namespace wh::platform
