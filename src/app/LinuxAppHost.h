#pragma once
// The application delegate's view of the process and desktop, on Linux with Qt.

#include "core/app/AppHost.h"
#include "platform/linux/app/SessionBusInstance.h"

namespace wh::app {

class LinuxAppHost final : public AppHost {
 public:
  bool environmentHas(const std::string& name) const override;
  bool claimSingleInstance(std::function<void()> reopen) override;
  std::string systemVersion() const override;
  bool accessibilityTrusted() const override;
  void openBluetoothSettings() override;

 private:
  platform::SessionBusInstance instance_;
};

}  // namespace wh::app
