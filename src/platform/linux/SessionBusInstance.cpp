#include "platform/linux/SessionBusInstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include "core/log/Log.h"

namespace wh::platform {

bool SessionBusInstance::claim(std::function<void()> reopen) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) {
    Log::error("no session bus: cannot tell whether another instance runs");
    return true;
  }
  reopen_ = std::move(reopen);
  bus.registerObject(objectPath, this, QDBusConnection::ExportScriptableSlots);
  const auto reply = bus.interface()->registerService(busName, QDBusConnectionInterface::DontQueueService,
                                                      QDBusConnectionInterface::DontAllowReplacement);
  if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered) return true;
  if (!reply.isValid() && !bus.interface()->isServiceRegistered(busName).value()) {
    // The bus refused the name but nobody else holds it: run, without the single-instance guard.
    Log::error("could not own " + std::string(busName) + ": " + reply.error().message().toStdString());
    return true;
  }

  bus.unregisterObject(objectPath);
  reopen_ = nullptr;
  auto call = QDBusMessage::createMethodCall(busName, objectPath, interfaceName, "Reopen");
  bus.call(call, QDBus::Block, 5000);
  return false;
}

void SessionBusInstance::Reopen() {
  if (reopen_) reopen_();
}

}  // namespace wh::platform
