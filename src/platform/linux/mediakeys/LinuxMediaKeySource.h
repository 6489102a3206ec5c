#pragma once
// Where the media keys come from on Linux: the kernel's input devices when the agent may read
// them and write /dev/uinput (any session) and can grab one of them; else, on an X11 session,
// grabs on the root window (on Wayland, XWayland's grabs would miss keys typed into Wayland
// windows, so they do not count). What a failed start says is said once while it stays so: the tap tries again
// every second.

#include <memory>
#include <optional>
#include <set>
#include <string>

#include "core/mediakeys/MediaKeySource.h"
#include "core/runtime/Runtime.h"

namespace wh::platform {

class LinuxMediaKeySource final : public MediaKeySource {
 public:
  explicit LinuxMediaKeySource(MainQueue& main);
  // Why this session leaves the keys out of reach, for the diagnostics; nothing when it does not.
  static std::optional<std::string> sessionProblem();
  bool accessGranted() const override;
  std::unique_ptr<KeyCapture> start(Handler handler) override;

 private:
  MainQueue& main_;
  bool devicesRefused_ = false;
  std::shared_ptr<std::set<std::string>> heldElsewhere_ = std::make_shared<std::set<std::string>>();
};

}  // namespace wh::platform
