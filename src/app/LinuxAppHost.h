#pragma once
// The application delegate's view of the process and desktop, on Linux with Qt.

#include "core/app/AppHost.h"
#include <memory>

#include "platform/linux/app/SessionBusInstance.h"
#include "ui/panels/KeyAccessWindow.h"

namespace wh::app {

class LinuxAppHost final : public AppHost {
 public:
  bool environmentHas(const std::string& name) const override;
  bool claimSingleInstance(std::function<void()> reopen) override;
  std::string systemVersion() const override;
  bool accessibilityTrusted() const override;
  void openBluetoothSettings() override;
  // The key access panel where there is a display (the caller logs the help line).
  void showKeyAccess() override;

  // After each check of the panel.
  std::function<void()> keyAccessChecked;

 private:
  platform::SessionBusInstance instance_;
  std::unique_ptr<panels::KeyAccessWindow> keyAccess_;
};

}  // namespace wh::app
