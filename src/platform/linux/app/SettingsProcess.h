#pragma once
// The settings program beside the agent. A running copy owns its bus name on the session bus: the
// agent finds its process through the bus, ends it, and waits until the name is free before it
// starts a new copy in the mode asked for.

#include <QDBusConnection>
#include <QObject>

#include <memory>
#include <string>

#include "core/app/StartupChores.h"
#include "core/runtime/Runtime.h"

namespace wh::platform {

class SettingsProcess final : public SettingsProgram {
 public:
  // How long a running copy has to end before a new one starts anyway.
  static constexpr int endTimeoutMs = 3000;

  // `path` is the settings program's executable. Make it on the main thread.
  explicit SettingsProcess(MainQueue& main, std::string path, QDBusConnection bus = QDBusConnection::sessionBus());
  ~SettingsProcess() override;
  // The settings program installed beside this one.
  static std::string besideThisProgram();

  std::string path() const override { return path_; }
  bool exists() const override;
  void endRunning(Work done) override;
  std::string start(bool onboarding) override;

 private:
  void waitForExit(Work done);

  MainQueue& main_;
  std::string path_;
  QDBusConnection bus_;
  QObject context_;
};

}  // namespace wh::platform
