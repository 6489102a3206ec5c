#include "app/LinuxAppHost.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <cstdlib>

#include "platform/linux/SystemInfo.h"

namespace wh::app {

bool LinuxAppHost::environmentHas(const std::string& name) const { return std::getenv(name.c_str()) != nullptr; }

bool LinuxAppHost::claimSingleInstance(std::function<void()> reopen) { return instance_.claim(std::move(reopen)); }

void LinuxAppHost::terminate() {
  QMetaObject::invokeMethod(QCoreApplication::instance(), [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);
}

std::string LinuxAppHost::systemVersion() const { return platform::systemVersion(); }

bool LinuxAppHost::accessibilityTrusted() const { return platform::inputAccessGranted(); }

}  // namespace wh::app
