#pragma once
// What the application delegate asks of the toolkit at launch: the kit's fonts, the main status
// item with its panel, and the headphones' own items.

#include <functional>
#include <memory>
#include <string>

#include "core/ui/DeviceStatusItems.h"
#include "core/ui/StatusMenuController.h"

namespace wh::ui {

class UserInterface {
 public:
  virtual ~UserInterface() = default;
  virtual void registerFonts() = 0;
  virtual std::unique_ptr<StatusMenuController> makeStatusMenu() = 0;
  virtual std::unique_ptr<DeviceStatusItems> makeDeviceItems() = 0;
  // Why the main item is not shown although it should be (no tray on this desktop, with what
  // brings one); empty while it is shown or hidden by choice. `changed` is called when it changes.
  virtual std::string trayProblem() const { return {}; }
  virtual void setTrayChanged(std::function<void()> /*changed*/) {}
};

}  // namespace wh::ui
