// The agent's entry point.

#include <unistd.h>

#include <QApplication>
#include <QCoreApplication>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "app/BuildConfig.h"
#include "app/LinuxAppHost.h"
#include "app/LogOnlyIdlePlayPanel.h"
#include "core/app/AgentStatus.h"
#include "core/app/AppDelegate.h"
#include "core/app/LaunchGate.h"
#include "core/app/Services.h"
#include "core/bluetooth/BluetoothAccess.h"
#include "core/audio/AudioProcesses.h"
#include "core/diagnostics/Diagnose.h"
#include "core/quality/CallDetector.h"
#include "core/quality/InputPinner.h"
#include "core/log/Log.h"
#include "core/notify/NotificationCenter.h"
#include "core/settings/Settings.h"
#include "platform/linux/bluetooth/BluezAuthority.h"
#include "platform/linux/bluetooth/BluezStack.h"
#include "platform/linux/bluetooth/BluezUPowerBatterySources.h"
#include "platform/linux/log/JournalLog.h"
#include "platform/linux/settings/JsonFileStore.h"
#include "platform/linux/bluetooth/LogindSleepWatcher.h"
#include "platform/linux/audio/ProcFsProcessTable.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/app/SessionBusChannel.h"
#include "platform/linux/app/SystemInfo.h"
#include "platform/linux/audio/XdgDesktopEntries.h"
#include "platform/linux/mediakeys/LinuxMediaKeySource.h"
#include "platform/linux/mediakeys/MprisPlayers.h"
#include "platform/linux/settings/XdgPaths.h"

namespace {

wh::BuildInfo buildInfo() {
  return {wh::build::kBundleIdentifier, wh::build::kShortVersion, wh::build::kBuildNumber};
}

bool hasArgument(int argc, char** argv, const char* wanted) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], wanted) == 0) return true;
  }
  return false;
}

// Without a display the agent still does its work; it just shows no tray icons.
bool useOffscreenWithoutDisplay() {
  if (std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr ||
      std::getenv("QT_QPA_PLATFORM") != nullptr) {
    return false;
  }
  ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
  return true;
}

// The sound server and what the agent knows of the processes that use it.
struct AudioStack {
  explicit AudioStack(wh::Runtime& runtime)
      : hardware(runtime.main()), grouping(processTable, desktopEntries), processes(runtime, hardware, grouping) {}

  wh::platform::PulseAudioHardware hardware;
  wh::platform::ProcFsProcessTable processTable;
  wh::platform::XdgDesktopEntries desktopEntries;
  wh::AppGrouping grouping;
  wh::AudioProcessMonitor processes;
};

// The diagnostics text, read from the sound server without a display or a log. The Qt
// application only gives the adapter's listener reports a main queue; it never runs.
std::string diagnosticsText(int argc, char** argv, const wh::BuildInfo& build) {
  QCoreApplication application(argc, argv);
  wh::platform::QtRuntime runtime;
  AudioStack audioStack(runtime);
  wh::platform::PulseAudioHardware& audio = audioStack.hardware;
  wh::AudioProcessMonitor& monitor = audioStack.processes;
  // Only read: the settings file is the user's, and nothing here writes it.
  wh::platform::JsonFileStore store(wh::platform::settingsFile());
  wh::NotificationCenter notifications;
  wh::Settings settings(store, notifications, true, nullptr);
  wh::InputPinner pinner(runtime, settings, audio, monitor);
  wh::platform::BluezUPowerBatterySources batteries;

  wh::Diagnose::Sources sources;
  sources.build = build;
  sources.systemVersion = wh::platform::systemVersion();
  sources.preferredMicrophone = [&pinner] { return pinner.preferredMicrophone(); };
  sources.meetingApps = wh::CallDetector::meetingApps(settings);
  sources.batteryEntries = [&batteries] { return batteries.readLive(); };
  sources.inputAccess = wh::platform::inputAccess();
  if (audio.waitUntilReady(3.0)) {
    sources.audio = &audio;
    sources.processes = &monitor;
  } else {
    sources.audioProblem = audio.lastError().empty() ? "no answer" : audio.lastError();
  }
  return wh::Diagnose(sources).text();
}

}  // namespace

int main(int argc, char** argv) {
  const wh::BuildInfo build = buildInfo();

  if (hasArgument(argc, argv, "--diagnose")) {
    std::cout << diagnosticsText(argc, argv, build) << "\n";
    return 0;
  }

  const bool headless = useOffscreenWithoutDisplay();
  QApplication application(argc, argv);
  QApplication::setApplicationName("Wrenhaven");
  QApplication::setApplicationVersion(build.shortVersion.c_str());
  QApplication::setDesktopFileName(build.bundleIdentifier.c_str());
  QApplication::setQuitOnLastWindowClosed(false);

  // Under a test runner nothing starts, and a second instance only hands over the reopen: both
  // are decided before any adapter, queue or connection exists. The system log is there already,
  // so that a missing session bus is reported.
  auto systemLog = std::make_shared<wh::platform::JournalLog>(build.bundleIdentifier, "core");
  wh::Log::install(systemLog, nullptr);
  wh::app::LinuxAppHost host;
  wh::LaunchGate gate(host);
  switch (gate.decide()) {
    case wh::LaunchGate::Decision::hostedByTestRunner:
      return QApplication::exec();
    case wh::LaunchGate::Decision::anotherInstanceRuns:
      return 0;
    case wh::LaunchGate::Decision::run:
      break;
  }

  wh::platform::QtRuntime runtime;
  const std::string logName = wh::FileLog::sharedName();
  auto fileLog = std::make_shared<wh::FileLog>(
      wh::platform::stateHome() / logName, logName,
      runtime.makeSerialQueue(wh::FileLog::queueLabel, wh::QueuePriority::utility), std::chrono::system_clock::now,
      [](std::FILE* file) { ::fsync(::fileno(file)); });
  wh::Log::install(systemLog, fileLog);

  wh::platform::JsonFileStore store(wh::platform::settingsFile());
  wh::NotificationCenter notifications;
  wh::Settings settings(store, notifications, wh::Shared::isAgent(build.bundleIdentifier), nullptr);

  // The platform services, each behind its port.
  AudioStack audioStack(runtime);
  wh::platform::PulseAudioHardware& audio = audioStack.hardware;
  wh::AudioProcessMonitor& processes = audioStack.processes;
  wh::platform::BluezStack bluetooth(runtime.main());
  wh::platform::LogindSleepWatcher sleep(runtime.main());
  wh::platform::BluezUPowerBatterySources batteries;
  wh::platform::BluezAuthority authority(runtime.main());
  wh::platform::SessionBusChannel channel;

  wh::platform::LinuxMediaKeySource mediaKeySource(runtime.main());
  wh::platform::MprisPlayers players(audioStack.desktopEntries);
  wh::app::LogOnlyIdlePlayPanel idlePlayPanel;

  wh::Services services(runtime, settings,
                        {bluetooth, sleep, batteries, wh::OutputSwitcher::Audio::live(audio), audio, processes,
                         notifications,
                         {mediaKeySource, players, processes, [&grouping = audioStack.grouping] { return grouping.regularAppIDs(); }},
                         idlePlayPanel});
  wh::BluetoothAccess access(authority, notifications);
  wh::AgentStatus agentStatus(runtime, settings, services, access, channel, host);
  wh::AppDelegate delegate(runtime, settings, notifications, host, build, services, access, agentStatus, processes);

  gate.onReopen = [&delegate] { delegate.applicationShouldHandleReopen(); };

  runtime.main().post([&] {
    delegate.applicationDidFinishLaunching();
    if (headless) wh::Log::info("no display: running without tray icons");
  });
  const int status = QApplication::exec();
  fileLog->flush();
  wh::Log::install(nullptr, nullptr);
  return status;
}
