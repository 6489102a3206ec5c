#include "support/TrayRig.h"

#include <algorithm>
#include <chrono>

namespace wh::test {

using namespace std::chrono_literals;

std::vector<std::string> matches(const std::string& text, const std::regex& pattern) {
  std::vector<std::string> found;
  for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern); it != std::sregex_iterator(); ++it) found.push_back((*it)[1]);
  return found;
}

std::string menuEntryId(const std::string& layout, const std::string& label) {
  const auto found = matches(layout, std::regex("\\((\\d+), \\{[^}]*'label': <'" + label + "'>"));
  return found.empty() ? std::string() : found.front();
}

TrayRig::TrayRig(const std::string& sessionBus, bool withTray) : bus_(sessionBus) {
  if (!xvfb_.available) {
    whyNot_ = "no Xvfb with xdotool";
  } else if (!bus_.empty() && withTray && !startTray()) {
    whyNot_ = "the tray stand-in did not start: " + tray_->output();
  }
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

std::vector<std::string> TrayRig::items() const {
  const std::string listed = call("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                                  {"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierWatcher",
                                   "RegisteredStatusNotifierItems"});
  return matches(listed, std::regex("'(:[0-9.]+)'"));
}

std::string TrayRig::itemShowing(const std::string& text) const {
  const auto items = this->items();
  const auto found = std::ranges::find_if(items, [&](const auto& item) { return toolTip(item).find(text) != std::string::npos; });
  return found == items.end() ? std::string() : *found;
}

std::string TrayRig::call(const std::string& item, const std::string& path, const std::vector<std::string>& method) const {
  std::vector<std::string> argv{"gdbus", "call", "--session", "--dest", item, "--object-path", path, "--method"};
  argv.insert(argv.end(), method.begin(), method.end());
  return runCommand(argv, {{"DBUS_SESSION_BUS_ADDRESS", bus_}}).output;
}

}  // namespace wh::test
