#include "platform/linux/dbus/DBusSignalRelay.h"

namespace wh::platform {

DBusSignalRelay::DBusSignalRelay(QDBusConnection bus, const QString& service, const QString& path,
                                 const QString& interface, const QString& name, const QStringList& argumentMatch,
                                 Handler handler)
    : bus_(std::move(bus)),
      service_(service),
      path_(path),
      interface_(interface),
      name_(name),
      argumentMatch_(argumentMatch),
      handler_(std::move(handler)) {
  subscribed_ = bus_.connect(service_, path_, interface_, name_, argumentMatch_, QString(), this,
                             SLOT(deliver(QDBusMessage)));
}

DBusSignalRelay::~DBusSignalRelay() {
  if (subscribed_) {
    bus_.disconnect(service_, path_, interface_, name_, argumentMatch_, QString(), this, SLOT(deliver(QDBusMessage)));
  }
}

void DBusSignalRelay::deliver(const QDBusMessage& message) {
  if (handler_) handler_(message);
}

}  // namespace wh::platform
