#pragma once
// An X display (Xvfb) and a desktop tray (the StatusNotifierWatcher and host of sni_host.py) on a
// given session bus: what the tray items need to be shown and looked at.

#include <memory>
#include <string>

#include "support/ChildProcess.h"

namespace wh::test {

class TrayRig {
 public:
  // With an empty bus address only the display is started.
  explicit TrayRig(const std::string& sessionBus);

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  const std::string& display() const { return display_; }
  // Stops the tray and starts it again (a desktop's tray restarting).
  bool restartTray();
  // The items registered with the tray, as the watcher lists them.
  std::string items() const;

 private:
  bool startTray();
  std::string bus_;
  std::unique_ptr<ChildProcess> xvfb_, tray_;
  std::string display_, whyNot_;
};

}  // namespace wh::test
