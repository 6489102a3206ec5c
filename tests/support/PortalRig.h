#pragma once
// The desktop portal on a test's session bus: the real xdg-desktop-portal frontend, with
// global_shortcuts.py as the desktop's GlobalShortcuts backend (chosen through a portal file of
// the rig's own and XDG_CURRENT_DESKTOP).

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace wh::test {

class PortalRig {
 public:
  struct Options {
    std::string sessionBus;
    std::vector<std::string> taken;   // triggers the desktop refuses
    std::vector<std::string> rebind;  // "PREFERRED=GIVEN": triggers the desktop gives another
  };
  explicit PortalRig(const Options& options);

  bool available() const { return whyNot_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  // Every binding the backend made so far: {"bound": {id: preferred}, "given": {id: trigger}}.
  std::vector<nlohmann::json> bindings();
  // Presses the key the desktop bound to `trigger`; false when no shortcut has it.
  bool press(const std::string& trigger) const;
  // What the portal's frontend printed.
  std::string log() { return frontend_->output(); }

 private:
  TempDir folder_{"wrenhaven-portal"};
  std::string bus_;
  std::unique_ptr<ChildProcess> backend_;
  std::unique_ptr<ChildProcess> frontend_;
  std::string whyNot_;
};

}  // namespace wh::test
