#include "settings/StatusSignal.h"

#include <QDBusError>

#include "core/log/Log.h"
#include "platform/linux/app/BusNames.h"

namespace wh::settingsapp {

namespace bus = platform::bus;

StatusSignal::StatusSignal(QDBusConnection bus, std::function<void()> arrived)
    : bus_(std::move(bus)), arrived_(std::move(arrived)) {
  if (!bus_.isConnected()) return;
  connected_ = bus_.connect(QString(), bus::objectPath, bus::interfaceName, bus::statusSignal, this, SLOT(received()));
  if (!connected_) Log::error("cannot listen for the agent's status: " + bus_.lastError().message().toStdString());
}

StatusSignal::~StatusSignal() {
  if (connected_) bus_.disconnect(QString(), bus::objectPath, bus::interfaceName, bus::statusSignal, this, SLOT(received()));
}

void StatusSignal::received() { arrived_(); }

}  // namespace wh::settingsapp
