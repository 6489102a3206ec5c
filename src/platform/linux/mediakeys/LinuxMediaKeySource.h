#pragma once
// Where the media keys come from on Linux: the kernel's input devices when the agent may read
// them and write /dev/uinput (any session) and can grab one of them; else, on X11, grabs on the
// root window. What a failed start says is said once while it stays so: the tap tries again
// every second.

#include <memory>
#include <set>
#include <string>

#include "core/mediakeys/MediaKeySource.h"
#include "core/runtime/Runtime.h"

namespace wh::platform {

class LinuxMediaKeySource final : public MediaKeySource {
 public:
  explicit LinuxMediaKeySource(MainQueue& main) : main_(main) {}
  bool accessGranted() const override;
  std::unique_ptr<KeyCapture> start(Handler handler) override;

 private:
  MainQueue& main_;
  bool devicesRefused_ = false;
  std::shared_ptr<std::set<std::string>> heldElsewhere_ = std::make_shared<std::set<std::string>>();
};

}  // namespace wh::platform
