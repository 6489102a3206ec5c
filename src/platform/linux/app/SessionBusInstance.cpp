#include "platform/linux/app/SessionBusInstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include "core/log/Log.h"

namespace wh::platform {

bool SessionBusInstance::claim(std::function<void()> reopen, const char* name) {
  QDBusConnection session = QDBusConnection::sessionBus();
  if (!session.isConnected()) {
    Log::error("no session bus: cannot tell whether another instance runs");
    return true;
  }
  reopen_ = std::move(reopen);
  session.registerObject(bus::objectPath, this, QDBusConnection::ExportScriptableSlots);
  const auto reply = session.interface()->registerService(name, QDBusConnectionInterface::DontQueueService,
                                                      QDBusConnectionInterface::DontAllowReplacement);
  if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered) return true;
  if (!reply.isValid() && !session.interface()->isServiceRegistered(name).value()) {
    // The bus refused the name but nobody else holds it: run, without the single-instance guard.
    Log::error("could not own " + std::string(name) + ": " + reply.error().message().toStdString());
    return true;
  }

  session.unregisterObject(bus::objectPath);
  reopen_ = nullptr;
  auto call = QDBusMessage::createMethodCall(name, bus::objectPath, bus::interfaceName, bus::reopenMethod);
  session.call(call, QDBus::Block, 5000);
  return false;
}

void SessionBusInstance::Reopen() {
  if (reopen_) reopen_();
}

}  // namespace wh::platform
