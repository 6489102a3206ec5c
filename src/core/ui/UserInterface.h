#pragma once
// What the application delegate asks of the toolkit at launch: the kit's fonts, the main status
// item with its panel, and the headphones' own items.

#include <memory>

#include "core/ui/DeviceStatusItems.h"
#include "core/ui/StatusMenuController.h"

namespace wh::ui {

class UserInterface {
 public:
  virtual ~UserInterface() = default;
  virtual void registerFonts() = 0;
  virtual std::unique_ptr<StatusMenuController> makeStatusMenu() = 0;
  virtual std::unique_ptr<DeviceStatusItems> makeDeviceItems() = 0;
};

}  // namespace wh::ui
