#include "platform/linux/app/SettingsProcess.h"

#include <signal.h>
#include <unistd.h>

#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QProcess>
#include <QTimer>

#include <filesystem>

#include "platform/linux/app/BusNames.h"

namespace wh::platform {

SettingsProcess::SettingsProcess(MainQueue& main, std::string path, QDBusConnection bus)
    : main_(main), path_(std::move(path)), bus_(std::move(bus)) {}

SettingsProcess::~SettingsProcess() = default;

std::string SettingsProcess::besideThisProgram() {
  std::error_code error;
  return (std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "wrenhaven-settings").string();
}

bool SettingsProcess::exists() const { return ::access(path_.c_str(), X_OK) == 0; }

void SettingsProcess::endRunning(Work done) {
  const QString name = QString::fromLatin1(bus::settingsName);
  if (!bus_.isConnected()) {
    main_.post(std::move(done));
    return;
  }
  auto* pending = new QDBusPendingCallWatcher(bus_.interface()->asyncCall(QStringLiteral("GetConnectionUnixProcessID"), name),
                                              &context_);
  QObject::connect(pending, &QDBusPendingCallWatcher::finished, &context_, [this, pending, done = std::move(done)]() mutable {
    pending->deleteLater();
    const QDBusPendingReply<uint> reply = *pending;
    // No owner: nothing runs. Otherwise ask the owner to end, as a desktop's "quit" would.
    if (reply.isError() || reply.value() == 0 || ::kill(static_cast<pid_t>(reply.value()), SIGTERM) != 0) {
      main_.post(done);
      return;
    }
    waitForExit(std::move(done));
  });
}

void SettingsProcess::waitForExit(Work done) {
  auto* watcher = new QDBusServiceWatcher(QString::fromLatin1(bus::settingsName), bus_,
                                          QDBusServiceWatcher::WatchForUnregistration, &context_);
  auto* timer = new QTimer(watcher);
  timer->setSingleShot(true);
  // Whichever comes first (the name freed, the time-out, the answer that nobody owns it) goes on,
  // once.
  auto waiting = std::make_shared<Work>(std::move(done));
  auto finish = [watcher, waiting, this] {
    watcher->deleteLater();
    if (*waiting) main_.post(std::exchange(*waiting, nullptr));
  };
  QObject::connect(watcher, &QDBusServiceWatcher::serviceUnregistered, watcher, finish);
  QObject::connect(timer, &QTimer::timeout, watcher, finish);
  timer->start(endTimeoutMs);
  // It may have gone between the question and the watch: ask once more, without waiting here.
  auto* owner = new QDBusPendingCallWatcher(
      bus_.interface()->asyncCall(QStringLiteral("NameHasOwner"), QString::fromLatin1(bus::settingsName)), watcher);
  QObject::connect(owner, &QDBusPendingCallWatcher::finished, watcher, [owner, finish] {
    const QDBusPendingReply<bool> reply = *owner;
    if (!reply.isError() && !reply.value()) finish();
  });
}

std::string SettingsProcess::start(bool onboarding) {
  // A window needs a screen: an agent without a display has none to offer.
  if (qEnvironmentVariable("QT_QPA_PLATFORM") == QLatin1String("offscreen")) return "no display to show it on";
  QProcess process;
  process.setProgram(QString::fromStdString(path_));
  if (onboarding) process.setArguments({QStringLiteral("--onboarding")});
  if (!process.startDetached()) return process.errorString().toStdString();
  return "";
}

}  // namespace wh::platform

