#pragma once
// Where the media keys come from on Linux: the kernel's input devices when the agent may read
// them and write /dev/uinput (any session); else, on X11, grabs on the root window.

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
};

}  // namespace wh::platform
