#pragma once
// One subscription to a D-Bus signal, handed to a function. QDBusConnection delivers signals only
// to a slot named by string; this object is that slot. The handler runs on the thread the relay
// was made on (the main thread, for every adapter here). Dropping the relay ends the subscription.

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>

#include <functional>

namespace wh::platform {

class DBusSignalRelay final : public QObject {
  Q_OBJECT

 public:
  using Handler = std::function<void(const QDBusMessage&)>;

  // `service` is a well-known name (the bus keeps delivering when its owner changes) or empty for
  // any sender; `path` empty for any object; `argumentMatch` matches the first arguments (strings).
  DBusSignalRelay(QDBusConnection bus, const QString& service, const QString& path, const QString& interface,
                  const QString& name, const QStringList& argumentMatch, Handler handler);
  ~DBusSignalRelay() override;

  // Whether the bus accepted the subscription.
  bool subscribed() const { return subscribed_; }

 public Q_SLOTS:
  void deliver(const QDBusMessage& message);

 private:
  QDBusConnection bus_;
  QString service_, path_, interface_, name_;
  QStringList argumentMatch_;
  Handler handler_;
  bool subscribed_ = false;
};

}  // namespace wh::platform
