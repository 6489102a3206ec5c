#pragma once
// Sleep and wake from systemd-logind. While observing, the watcher holds a "delay" inhibitor lock
// for sleep, so logind waits (up to its InhibitDelayMaxSec) before the machine sleeps. On
// PrepareForSleep(true) `willSleep` runs on the main thread, and the lock is released once its
// completion has been called or the sleep work's time limit has passed; on PrepareForSleep(false) a new lock
// is taken (unless the old one is still held) and `didWake` runs. When logind restarts, the lock
// is taken again from the new process.

#include <QDBusConnection>

#include <chrono>
#include <memory>

#include "core/bluetooth/BluetoothPorts.h"
#include "core/runtime/Runtime.h"

namespace wh::platform {

class LogindSleepWatcher final : public SleepWatcher {
 public:
  static constexpr const char* inhibitorWho = "Wrenhaven";
  static constexpr const char* inhibitorWhy = "Disconnecting headphones before sleep";
  // How long the sleep work may hold the machine up (logind's own limit is 5 s by default).
  static constexpr std::chrono::milliseconds defaultSleepWorkLimit{4000};

  // Make it and its observations on the main thread.
  explicit LogindSleepWatcher(MainQueue& main, QDBusConnection bus = QDBusConnection::systemBus(),
                              std::chrono::milliseconds sleepWorkLimit = defaultSleepWorkLimit);
  ~LogindSleepWatcher() override;

  std::unique_ptr<Registration> observe(std::function<void(std::function<void()> done)> willSleep,
                                        std::function<void()> didWake) override;

 private:
  class Observer;
  MainQueue& main_;
  QDBusConnection bus_;
  std::chrono::milliseconds sleepWorkLimit_;
};

}  // namespace wh::platform
