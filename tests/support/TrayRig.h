#pragma once
// An X display (Xvfb) and a desktop tray (the StatusNotifierWatcher and host of sni_host.py) on a
// given session bus: what the tray items need to be shown and looked at.

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/XvfbDisplay.h"

namespace wh::test {

// The first group of every match of `pattern` in `text`, in order.
std::vector<std::string> matches(const std::string& text, const std::regex& pattern);
// The id of the menu entry labelled `label` in gdbus's print of a dbusmenu GetLayout answer; empty
// when there is none.
std::string menuEntryId(const std::string& layout, const std::string& label);

class TrayRig {
 public:
  // With an empty bus address, or `withTray` false, only the display is started.
  explicit TrayRig(const std::string& sessionBus, bool withTray = true);

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  const std::string& display() const { return xvfb_.name; }
  // Stops the tray and starts it again (a desktop's tray restarting), or starts it late.
  bool restartTray();
  bool startTray();
  // The items registered with the tray (their bus names), as the watcher lists them.
  std::vector<std::string> items() const;
  // gdbus's answer to `method` (and its arguments) of `item`'s object at `path`.
  std::string call(const std::string& item, const std::string& path, const std::vector<std::string>& method) const;
  // gdbus's print of the item's property `name`.
  std::string property(const std::string& item, const std::string& name) const {
    return call(item, "/StatusNotifierItem", {"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierItem", name});
  }
  std::string toolTip(const std::string& item) const { return property(item, "ToolTip"); }
  // The item whose tooltip holds `text`; empty when none does.
  std::string itemShowing(const std::string& text) const;

 private:
  std::string bus_;
  XvfbDisplay xvfb_;
  std::unique_ptr<ChildProcess> tray_;
  std::string whyNot_;
};

}  // namespace wh::test
