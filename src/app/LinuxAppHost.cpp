#include "app/LinuxAppHost.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QProcess>
#include <QStandardPaths>

#include <cstdlib>

#include "core/log/Log.h"
#include "core/texts/PlatformTexts.h"
#include "platform/linux/app/SystemInfo.h"

namespace wh::app {

bool LinuxAppHost::environmentHas(const std::string& name) const { return std::getenv(name.c_str()) != nullptr; }

bool LinuxAppHost::claimSingleInstance(std::function<void()> reopen) { return instance_.claim(std::move(reopen)); }

std::string LinuxAppHost::systemVersion() const { return platform::systemVersion(); }

bool LinuxAppHost::accessibilityTrusted() const { return platform::inputAccessGranted(); }

void LinuxAppHost::openBluetoothSettings() {
  Log::info(texts::kBluetoothAccessHelp);
  for (const auto& command : texts::kBluetoothSettingsCommands) {
    if (QStandardPaths::findExecutable(command[0]).isEmpty()) continue;
    QStringList arguments;
    for (int i = 1; i < 3 && command[i] != nullptr; ++i) arguments << command[i];
    if (QProcess::startDetached(command[0], arguments)) return;
  }
}

void LinuxAppHost::showKeyAccess() {
  // Whoever asks has logged the help already; without a display that line is all there is.
  if (QGuiApplication::platformName() == "offscreen") return;
  if (!keyAccess_) {
    keyAccess_ = std::make_unique<panels::KeyAccessWindow>(
        texts::keyAccessSteps(platform::keyAccessSystem(QCoreApplication::applicationFilePath().toStdString())),
        [] { return platform::inputAccess(); });
    keyAccess_->checked = [this](const texts::InputAccess&) {
      if (keyAccessChecked) keyAccessChecked();
    };
  }
  keyAccess_->show();
}

}  // namespace wh::app
