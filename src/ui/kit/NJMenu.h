#pragma once
// Turns a menu described as data into a real menu.

#include <QMenu>

#include "core/ui/MenuEntry.h"

namespace nj {

class NJMenu {
 public:
  // Replaces the menu's contents with `entries`; every action is enabled or disabled explicitly.
  static void fill(QMenu& menu, const wh::ui::Menu& entries);
};

}  // namespace nj
