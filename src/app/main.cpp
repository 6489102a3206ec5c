// The agent's entry point.

#include <unistd.h>

#include <QApplication>
#include <QCoreApplication>

#include <cstdlib>
#include <iostream>
#include <optional>

#include "app/BuildConfig.h"
#include "app/DesktopInstaller.h"
#include "app/LinuxAppHost.h"
#include "app/LogOnlyIdlePlayPanel.h"
#include "app/StopSignals.h"
#include "core/app/AgentStatus.h"
#include "core/app/AppDelegate.h"
#include "core/app/LaunchGate.h"
#include "core/app/Services.h"
#include "core/bluetooth/BluetoothAccess.h"
#include "core/audio/AudioProcesses.h"
#include "core/diagnostics/Diagnose.h"
#include "core/quality/AutoSwitchKeeper.h"
#include "core/quality/CallDetector.h"
#include "core/quality/InputPinner.h"
#include "core/log/Log.h"
#include "core/notify/NotificationCenter.h"
#include "core/settings/Settings.h"
#include "platform/linux/bluetooth/BluezAuthority.h"
#include "platform/linux/bluetooth/BluezStack.h"
#include "platform/linux/bluetooth/BluezUPowerBatterySources.h"
#include "platform/linux/log/JournalLog.h"
#include "platform/linux/report/CrashReports.h"
#include "platform/linux/report/LibarchiveZip.h"
#include "platform/linux/report/LocalDiagnostics.h"
#include "platform/linux/report/QtReportUploader.h"
#include "platform/linux/settings/JsonFileStore.h"
#include "platform/linux/bluetooth/LogindSleepWatcher.h"
#include "platform/linux/audio/ProcFsProcessTable.h"
#include "platform/linux/audio/PulseAudioHardware.h"
#include "platform/linux/audio/PulseBluetoothPolicy.h"
#include "platform/linux/audio/WirePlumberAutoSwitch.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/app/CommandLine.h"
#include "platform/linux/app/SessionBusChannel.h"
#include "platform/linux/app/SettingsProcess.h"
#include "platform/linux/app/SystemInfo.h"
#include "platform/linux/app/XdgAutostart.h"
#include "platform/linux/audio/XdgDesktopEntries.h"
#include "platform/linux/volume/PulseProcessTaps.h"
#include "platform/linux/mediakeys/LinuxMediaKeySource.h"
#include "platform/linux/mediakeys/MprisPlayers.h"
#include "platform/linux/hotkeys/PortalHotkeys.h"
#include "platform/linux/hotkeys/X11Hotkeys.h"
#include "platform/linux/hotkeys/XkbLayout.h"
#include "ui/hotkeys/HotkeyRecorderPanel.h"
#include "ui/kit/NJGlyphs.h"
#include "platform/linux/settings/XdgPaths.h"
#include "ui/panels/IdlePlayWindow.h"
#include "ui/panels/ReportWindow.h"
#include "ui/tray/TrayUserInterface.h"

namespace {

wh::BuildInfo buildInfo() {
  return {wh::build::kBundleIdentifier, wh::build::kShortVersion, wh::build::kBuildNumber};
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

using wh::platform::AudioStack;
using wh::platform::diagnoseSources;

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

  wh::Diagnose::Sources sources = diagnoseSources(build, settings, pinner, batteries);
  // The server's automatic headset switch, and whether the running agent has it off (its record).
  wh::platform::PulseBluetoothPolicy pulsePolicy;
  wh::platform::WirePlumberAutoSwitch wirePlumberPolicy;
  wh::platform::EitherAutoSwitch bluetoothPolicy(wirePlumberPolicy, pulsePolicy);
  wh::platform::JsonFileStore agentState(wh::platform::stateHome() / wh::FileLog::sharedName() / "state.json");
  wh::AutoSwitchKeeper autoSwitch(runtime, settings, bluetoothPolicy, agentState);
  if (audio.waitUntilReady(3.0)) {
    sources.audio = &audio;
    sources.processes = &monitor;
    sources.autoSwitch = [&autoSwitch] { return autoSwitch.lookNow(); };
  } else {
    sources.audioProblem = audio.lastError().empty() ? "no answer" : audio.lastError();
  }
  return wh::Diagnose(sources).text();
}

}  // namespace

int main(int argc, char** argv) {
  const wh::BuildInfo build = buildInfo();

  wh::platform::CommandLine commandLine(
      "wrenhaven", "Keeps Bluetooth headphones connected, in music quality, and in reach of the media keys.",
      "Wrenhaven " + build.versionText(), {{"diagnose", "Print the diagnostics text and exit."}});
  if (const auto exitStatus = commandLine.parse(argc, argv)) return *exitStatus;
  if (commandLine.isSet("diagnose")) {
    std::cout << diagnosticsText(argc, argv, build) << "\n";
    return 0;
  }

  const bool headless = useOffscreenWithoutDisplay();
  QApplication application(argc, argv);
  QApplication::setApplicationName("Wrenhaven");
  QApplication::setApplicationVersion(build.shortVersion.c_str());
  QApplication::setDesktopFileName(build.bundleIdentifier.c_str());
  QApplication::setWindowIcon(nj::NJGlyphs::brandIcon(build.bundleIdentifier.c_str()));
  QApplication::setQuitOnLastWindowClosed(false);
  // A stop signal ends the event loop as Quit does; the teardown after the loop is the same.
  wh::app::StopSignals stopSignals([](int) { QApplication::quit(); });

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
  const std::filesystem::path crashFolder = wh::platform::stateHome() / logName / "crashes";
  wh::platform::installCrashReports(crashFolder);

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
  // Its first answer comes after the launch has published "undetermined": say that it changed.
  wh::platform::BluezAuthority authority(runtime.main(), QDBusConnection::systemBus(),
                                         [&notifications] { notifications.post(wh::BluetoothAccess::changedName); });
  wh::platform::SessionBusChannel channel;
  wh::platform::PulseProcessTaps taps(audio);

  wh::platform::LinuxMediaKeySource mediaKeySource(runtime.main());
  wh::platform::MprisPlayers players(audioStack.desktopEntries);
  // The idle-play panel is drawn where there is a display; elsewhere it only logs.
  wh::app::LogOnlyIdlePlayPanel idlePlayLog;
  std::optional<wh::panels::IdlePlayWindow> idlePlayWindow;
  if (!headless) idlePlayWindow.emplace();
  wh::IdlePlayPanel& idlePlayPanel = idlePlayWindow ? static_cast<wh::IdlePlayPanel&>(*idlePlayWindow) : idlePlayLog;
  // Keys are named from the X keymap; they are grabbed there on X11, and on Wayland through the
  // desktop's shortcuts portal where it has one (X11 grabs there see only X11 windows).
  wh::platform::X11Hotkeys x11Hotkeys;
  std::optional<wh::platform::PortalHotkeys> portalHotkeys;
  if (wh::platform::waylandSession()) {
    portalHotkeys.emplace();
    if (const auto why = portalHotkeys->unavailableReason()) {
      wh::Log::info("hotkeys: no desktop shortcuts: " + *why);
      portalHotkeys.reset();
    }
  }
  wh::HotkeyService& hotkeyService = portalHotkeys ? static_cast<wh::HotkeyService&>(*portalHotkeys) : x11Hotkeys;
  // Without an X server the keys are named from the system's keyboard layout through xkbcommon.
  std::optional<wh::platform::XkbLayout> xkbLayout;
  if (wh::platform::waylandSession() && std::getenv("DISPLAY") == nullptr) xkbLayout.emplace();
  const wh::KeyboardLayout* keyboardLayout = &x11Hotkeys;
  if (xkbLayout && xkbLayout->usable()) keyboardLayout = &*xkbLayout;
  wh::hotkeys::HotkeyRecorderPanel recorderPanel(keyboardLayout);

  wh::Services services(runtime, settings,
                        {bluetooth, sleep, batteries, wh::OutputSwitcher::Audio::live(audio), audio, processes,
                         audioStack.grouping, audioStack.desktopEntries, taps, notifications,
                         {mediaKeySource, players, processes, [&grouping = audioStack.grouping] { return grouping.regularAppIDs(); }},
                         idlePlayPanel, {recorderPanel, keyboardLayout, &hotkeyService}});
  // The server's own switch to the headset profile: off while music quality is kept, the person's
  // setting on record in the agent's state file until it is back. Evaluated on settings changes and
  // when cards come and go (headphones connecting, the server restarting with its own setting).
  wh::platform::PulseBluetoothPolicy pulsePolicy;
  wh::platform::WirePlumberAutoSwitch wirePlumberPolicy;
  wh::platform::EitherAutoSwitch bluetoothPolicy(wirePlumberPolicy, pulsePolicy);
  wh::platform::JsonFileStore agentState(wh::platform::stateHome() / logName / "state.json");
  wh::AutoSwitchKeeper autoSwitch(runtime, settings, bluetoothPolicy, agentState);
  services.profileGuard.movesCardsForCalls = [&autoSwitch] { return autoSwitch.offByAgent(); };
  autoSwitch.onChange = [&services] { services.profileGuard.evaluate(); };
  // Volume changes come often and never matter here.
  const auto autoSwitchSettings = notifications.observe(wh::Settings::changedName, [&autoSwitch](const std::string& key) {
    if (key != wh::Keys::appVolumes) autoSwitch.evaluate();
  });
  std::optional<wh::CA::Listener> autoSwitchCards;
  wh::Hotkeys hotkeys(hotkeyService, keyboardLayout);
  wh::BluetoothAccess access(authority, notifications);
  wh::app::DesktopInstaller installer;
  wh::MoveToApplications move(installer);
  wh::platform::SettingsProcess settingsProgram(runtime.main(), wh::platform::SettingsProcess::besideThisProgram());
  wh::SettingsLauncher settingsLauncher(settingsProgram);
  wh::platform::XdgAutostart autostart = wh::platform::XdgAutostart::forThisProgram();
  wh::LoginItem loginItem(autostart);

  wh::AgentStatus agentStatus(runtime, settings, services, access, channel, host, loginItem);
  wh::AppDelegate delegate(runtime, settings, notifications, host, build, services, access, agentStatus, processes,
                           {move, settingsLauncher});

  delegate.setHotkeys(&hotkeys);
  gate.onReopen = [&delegate] { delegate.applicationShouldHandleReopen(); };

  // The tray, where there is a display to show it on.
  std::optional<wh::tray::TrayUserInterface> tray;
  wh::platform::LibarchiveZip reportZip;
  wh::platform::QtReportUploader reportUploader;
  std::optional<wh::panels::ReportWindow> reportWindow;
  std::optional<wh::ReportProblem> report;
  if (!headless) {
    wh::ui::PanelServices extras;
    extras.openBluetoothSettings = [&host] { host.openBluetoothSettings(); };
    extras.showKeyAccess = [&host] { host.showKeyAccess(); };
    // A check in the key access panel: the media keys try again with what it found.
    host.keyAccessChecked = [&agentStatus, &services] {
      agentStatus.accessibility().recheck();
      services.mediaKeys.sync();
    };
    extras.startsAtLogin = [&loginItem] { return loginItem.enabled(); };
    extras.setStartAtLogin = [&loginItem, &delegate](bool on) {
      loginItem.set(on);
      delegate.refreshAction()();  // the status carries the new state
    };
    reportWindow.emplace(wh::platform::systemVersion());
    wh::Diagnose::Sources diagnose = diagnoseSources(build, settings, services.pinner, batteries);
    diagnose.audio = &audio;
    diagnose.processes = &processes;
    diagnose.autoSwitch = [&autoSwitch] { return autoSwitch.describe(); };
    diagnose.guardAction = [&guard = services.profileGuard](const std::string& card) { return guard.lastAction(card); };
    wh::ReportProblem::Sources reportSources{
        [diagnose] { return wh::Diagnose(diagnose).text(); },
        fileLog, crashFolder, std::filesystem::temp_directory_path(),
        wh::build::kReportService, wh::build::kSupportAddress, build.shortVersion, wh::platform::systemVersion(),
        [] { return std::chrono::system_clock::now(); }};
    report.emplace(std::move(reportSources), reportZip, reportUploader, *reportWindow);
    reportWindow->actOn(*report);
    extras.reportProblem = [&reportWindow] { reportWindow->show(); };
    tray.emplace(wh::tray::TraySources{runtime, services, settings, audio, access, build.versionText(), extras});
    delegate.setUserInterface(&*tray);
  }

  runtime.main().post([&] {
    delegate.applicationDidFinishLaunching();
    autoSwitch.start();
    autoSwitchCards.emplace(audio, wh::audioSystemObject, wh::AudioProperty::cards, [&autoSwitch] { autoSwitch.evaluate(); });
    if (headless) wh::Log::info("no display: running without tray icons");
  });
  const int status = QApplication::exec();
  autoSwitchCards.reset();
  autoSwitch.stop();
  delegate.applicationWillTerminate();
  fileLog->flush();
  wh::Log::install(nullptr, nullptr);
  return status;
}
