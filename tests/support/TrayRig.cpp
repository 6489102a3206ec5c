#include "support/TrayRig.h"

#include <chrono>

namespace wh::test {

using namespace std::chrono_literals;

TrayRig::TrayRig(const std::string& sessionBus) : bus_(sessionBus) {
  if (findExecutable("Xvfb").empty()) {
    whyNot_ = "Xvfb is not installed";
    return;
  }
  xvfb_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"Xvfb", "-displayfd", "1", "-screen", "0", "1280x800x24", "-nolisten", "tcp"});
  if (!xvfb_->waitForOutput("\n", 10s)) {
    whyNot_ = "Xvfb did not start";
    return;
  }
  display_ = ":" + xvfb_->output().substr(0, xvfb_->output().find('\n'));
  if (!bus_.empty() && !startTray()) whyNot_ = "the tray stand-in did not start: " + tray_->output();
}

bool TrayRig::startTray() {
  tray_ = std::make_unique<ChildProcess>(std::vector<std::string>{"/usr/bin/python3", WRENHAVEN_SNI_HOST_PATH},
                                         ChildProcess::Environment{{"DBUS_SESSION_BUS_ADDRESS", bus_}});
  return tray_->waitForOutput("ready", 10s);
}

bool TrayRig::restartTray() {
  tray_.reset();
  return startTray();
}

std::string TrayRig::items() const {
  return runCommand({"gdbus", "call", "--session", "--dest", "org.kde.StatusNotifierWatcher", "--object-path",
                     "/StatusNotifierWatcher", "--method", "org.freedesktop.DBus.Properties.Get",
                     "org.kde.StatusNotifierWatcher", "RegisteredStatusNotifierItems"},
                    {{"DBUS_SESSION_BUS_ADDRESS", bus_}})
      .output;
}

}  // namespace wh::test
