// wrenhaven-settings: the window and first-run guide that edit the shared settings and command the
// running agent. One copy runs at a time; a second one raises the first and ends.

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusServiceWatcher>
#include <QFileInfo>
#include <QProcess>

#include <memory>

#include "app/BuildConfig.h"
#include "core/app/AgentStatus.h"
#include "core/app/BuildInfo.h"
#include "core/log/Log.h"
#include "platform/linux/app/BusNames.h"
#include "platform/linux/app/SystemInfo.h"
#include "platform/linux/app/CommandLine.h"
#include "platform/linux/app/SessionBusChannel.h"
#include "platform/linux/app/SessionBusInstance.h"
#include "platform/linux/hotkeys/X11Hotkeys.h"
#include "platform/linux/log/JournalLog.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "platform/linux/settings/JsonFileStore.h"
#include "platform/linux/settings/XdgPaths.h"
#include "settings/AudioInputs.h"
#include "settings/OnboardingGuide.h"
#include "settings/SettingsFileWatch.h"
#include "settings/StatusSignal.h"
#include "settings/SettingsReport.h"
#include "settings/SettingsWindow.h"
#include "ui/hotkeys/HotkeyRecorderPanel.h"
#include "ui/kit/NJFonts.h"
#include "ui/kit/NJGlyphs.h"
#include "ui/panels/KeyAccessWindow.h"

namespace {

namespace bus = wh::platform::bus;

constexpr char agentProgram[] = "wrenhaven";

void raise(QWidget& widget) {
  widget.show();
  widget.raise();
  widget.activateWindow();
}

// The agent installed beside this program, else the one on the PATH.
void startAgent() {
  const QString beside = QApplication::applicationDirPath() + "/" + agentProgram;
  const QString program = QFileInfo(beside).isExecutable() ? beside : QString(agentProgram);
  if (!QProcess::startDetached(program, {})) wh::Log::error("could not start " + program.toStdString());
}

bool agentRunning() {
  auto* interface = QDBusConnection::sessionBus().interface();
  return interface != nullptr && interface->isServiceRegistered(bus::agentName).value();
}

}  // namespace

int main(int argc, char** argv) {
  const wh::BuildInfo build{wh::build::kBundleIdentifier, wh::build::kShortVersion, wh::build::kBuildNumber};
  wh::platform::CommandLine commandLine("wrenhaven-settings", "Sets up Wrenhaven and changes its settings.",
                                        "Wrenhaven Settings " + build.versionText(),
                                        {{"onboarding", "Open the first-run guide."}});
  if (const auto exitStatus = commandLine.parse(argc, argv)) return *exitStatus;

  QApplication application(argc, argv);
  QApplication::setApplicationName("Wrenhaven Settings");
  QApplication::setApplicationVersion(build.shortVersion.c_str());
  QApplication::setDesktopFileName(QString(bus::settingsName));
  QApplication::setWindowIcon(nj::NJGlyphs::brandIcon(build.bundleIdentifier.c_str()));
  wh::Log::install(std::make_shared<wh::platform::JournalLog>(build.bundleIdentifier, "settings"), nullptr);
  nj::NJFonts::registerFonts();

  std::function<void()> reopen;
  wh::platform::SessionBusInstance instance;
  if (!instance.claim([&reopen] { if (reopen) reopen(); }, bus::settingsName)) return 0;

  const std::filesystem::path file = wh::platform::settingsFile();
  wh::platform::JsonFileStore store(file);
  wh::NotificationCenter notifications;
  wh::platform::SessionBusChannel channel;
  wh::Settings settings(store, notifications, false, &channel);

  wh::platform::QtRuntime runtime;
  // The sound server: the microphones to choose from, and the diagnostics of a problem report.
  wh::platform::PulseAudioHardware::Options audioOptions;
  audioOptions.clientName = "Wrenhaven Settings";
  wh::platform::AudioStack audio(runtime, audioOptions);
  wh::settingsapp::SettingsReport report(runtime, settings, audio, build,
                                         {wh::build::kReportService, wh::build::kSupportAddress});
  // The keyboard names the keys of hotkeys; nothing is grabbed here, the agent registers them.
  wh::platform::X11Hotkeys keyboard;
  wh::hotkeys::HotkeyRecorderPanel recorderPanel(&keyboard);
  wh::HotkeyRecorder recorder({recorderPanel, &keyboard, &keyboard});

  // The key access panel: this program checks the devices itself (same user, same machine) and
  // tells the agent to look again, without a second panel of its own.
  wh::panels::KeyAccessWindow keyAccess(
      wh::texts::keyAccessSteps(wh::platform::keyAccessSystem(QCoreApplication::applicationFilePath().toStdString())),
      [] { return wh::platform::inputAccess(); });
  keyAccess.checked = [&channel](const wh::texts::InputAccess&) {
    channel.send("requestAccessibility", {{"panel", false}});
  };

  std::unique_ptr<wh::settingsapp::OnboardingGuide> guide;
  std::function<void()> openGuide;
  const wh::settingsapp::PageActions actions{
      [&channel](const std::string& command, const nlohmann::json& userInfo) { channel.send(command, userInfo); },
      [&openGuide] { openGuide(); },
      [&recorder](const std::string& name, wh::HotkeyRecorder::Completion done) { recorder.record(name, std::move(done)); },
      &keyboard,
      [&report] { report.show(); },
      build.versionText(),
      [&keyAccess] { keyAccess.show(); }};
  wh::settingsapp::SettingsWindow window(
      settings, actions,
      {agentRunning, startAgent, [&channel] { channel.send(wh::statusCommand, nlohmann::json::object()); }});
  // The computer's microphones, read off the main thread.
  wh::settingsapp::AudioInputs inputs(runtime, audio.hardware, [&window](std::vector<wh::AudioDevice> devices) {
    window.setAudioDevices(std::move(devices));
  });
  openGuide = [&] {
    if (!guide) {
      guide = std::make_unique<wh::settingsapp::OnboardingGuide>(settings, actions);
      QObject::connect(guide.get(), &wh::settingsapp::OnboardingGuide::finished, &window, [&] {
        guide->hide();
        guide.release()->deleteLater();
        raise(window);
      });
    }
    raise(*guide);
  };
  const auto redraw = [&] {
    window.refresh();
    if (guide) guide->refresh();
  };
  reopen = [&] {
    if (guide) raise(*guide);
    else raise(window);
  };

  // Follow the store: this program's own writes, the other program's, and edits by hand.
  auto changed = notifications.observe(wh::Settings::changedName, [&](const std::string&) { redraw(); });
  wh::settingsapp::SettingsFileWatch fileWatch(file, redraw);

  // Follow the agent: its status signal, and it starting or ending.
  wh::settingsapp::StatusSignal status(QDBusConnection::sessionBus(), [&] {
    window.statusAnswered();
    if (guide) guide->refresh();
  });
  QDBusServiceWatcher agentWatch(bus::agentName, QDBusConnection::sessionBus(),
                                 QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration);
  QObject::connect(&agentWatch, &QDBusServiceWatcher::serviceRegistered, &window, [&] {
    window.askStatus();
    redraw();
  });
  QObject::connect(&agentWatch, &QDBusServiceWatcher::serviceUnregistered, &window, [&] { redraw(); });
  channel.send("listPaired", nlohmann::json::object());
  window.askStatus();

  if (commandLine.isSet("onboarding") || !settings.boolValue(wh::Keys::onboardingDone, false)) {
    openGuide();
  } else {
    raise(window);
  }
  const int exitStatus = QApplication::exec();
  guide.reset();
  return exitStatus;
}
