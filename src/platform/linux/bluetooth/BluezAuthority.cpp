#include "platform/linux/bluetooth/BluezAuthority.h"

#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>

#include "platform/linux/bluetooth/BluezObjects.h"

namespace wh::platform {

namespace {

// Peer.Ping is answered by the D-Bus library inside bluetoothd itself, so it tells whether the
// process answers (and whether the bus lets us reach it) before its objects exist.
QDBusMessage ping() {
  return QDBusMessage::createMethodCall(bluez::service, bluez::rootPath, QStringLiteral("org.freedesktop.DBus.Peer"),
                                        QStringLiteral("Ping"));
}

BluetoothAuthorization fromAnswer(const QDBusMessage& answer) {
  if (answer.type() == QDBusMessage::ReplyMessage) return BluetoothAuthorization::allowedAlways;
  if (answer.errorName() == QLatin1String("org.freedesktop.DBus.Error.AccessDenied")) {
    return BluetoothAuthorization::denied;
  }
  return BluetoothAuthorization::undetermined;
}

}  // namespace

BluezAuthority::BluezAuthority(MainQueue& main, QDBusConnection bus, std::function<void()> learned)
    : main_(main), bus_(std::move(bus)), learned_(std::move(learned)) {
  if (bus_.isConnected()) {
    ask();
  } else {
    learn(BluetoothAuthorization::restricted);
  }
}

BluezAuthority::~BluezAuthority() = default;

BluetoothAuthorization BluezAuthority::authorization() const {
  const int known = state_.load();
  return known >= 0 ? static_cast<BluetoothAuthorization>(known) : BluetoothAuthorization::undetermined;
}

void BluezAuthority::startWatching(std::function<void()> updated) {
  if (watching_) return;
  watching_ = true;
  updated_ = std::move(updated);
  if (!bus_.isConnected()) {
    learn(BluetoothAuthorization::restricted);
    return;
  }
  watcher_ = std::make_unique<QDBusServiceWatcher>(QString::fromLatin1(bluez::service), bus_,
                                                   QDBusServiceWatcher::WatchForOwnerChange);
  QObject::connect(watcher_.get(), &QDBusServiceWatcher::serviceOwnerChanged, &context_, [this] { ask(); });
  ask();
}

void BluezAuthority::ask() {
  const std::uint64_t question = ++asked_;
  auto* pending = new QDBusPendingCallWatcher(bus_.asyncCall(ping(), probeTimeoutMs), &context_);
  QObject::connect(pending, &QDBusPendingCallWatcher::finished, &context_, [this, pending, question] {
    pending->deleteLater();
    // Only the latest question counts: the owner changed again while an older one was out.
    if (question == asked_) learn(fromAnswer(pending->reply()));
  });
}

void BluezAuthority::learn(BluetoothAuthorization state) {
  const int previous = state_.exchange(static_cast<int>(state));
  if (previous < 0 && learned_) main_.post(lifetime_.guard([this] { learned_(); }));
  if (!watching_) return;
  const bool first = !answered_;
  answered_ = true;
  if (first || previous != static_cast<int>(state)) {
    main_.post(lifetime_.guard([this] {
      if (updated_) updated_();
    }));
  }
}

}  // namespace wh::platform
