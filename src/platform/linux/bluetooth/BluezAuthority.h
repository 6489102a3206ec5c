#pragma once
// The Bluetooth permission as Linux has it: whether BlueZ is there and lets this user talk to it.
//   allowedAlways  org.bluez has an owner and answers GetManagedObjects;
//   denied         the bus refuses the call (AccessDenied: the bus policy, a sandbox's proxy);
//   restricted     there is no system bus to ask at all;
//   undetermined   anything else (BlueZ not running, not answering).
// It asks once when made, without waiting; until the answer is in, the state reads undetermined, and
// `learned` is called on the main queue when the first answer has come. Watching follows org.bluez's
// owner on the bus and asks again whenever it changes.

#include <QDBusConnection>
#include <QObject>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "core/bluetooth/BluetoothPorts.h"
#include "core/runtime/Runtime.h"

class QDBusServiceWatcher;

namespace wh::platform {

class BluezAuthority final : public BluetoothAuthority {
 public:
  static constexpr int probeTimeoutMs = 2000;

  // Make it on the main thread.
  explicit BluezAuthority(MainQueue& main, QDBusConnection bus = QDBusConnection::systemBus(),
                          std::function<void()> learned = {});
  ~BluezAuthority() override;

  // What was learnt last; undetermined before the first answer. Never waits.
  BluetoothAuthorization authorization() const override;
  void startWatching(std::function<void()> updated) override;

 private:
  void ask();
  void learn(BluetoothAuthorization state);

  MainQueue& main_;
  QDBusConnection bus_;
  std::atomic<int> state_{-1};  // -1 until something was learnt
  std::function<void()> learned_;
  std::function<void()> updated_;
  bool watching_ = false;
  bool answered_ = false;  // the first answer after startWatching has been given
  QObject context_;
  std::unique_ptr<QDBusServiceWatcher> watcher_;
  std::uint64_t asked_ = 0;
  Lifetime lifetime_;
};

}  // namespace wh::platform
