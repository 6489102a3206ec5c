#pragma once
// The widget tests' QApplication, on an X display (Xvfb) of its own that lives as long as the
// process, made by the first test that asks for it.

#include <QApplication>

#include "support/TrayRig.h"

namespace wh::test {

// The display, or why there is none (then no application is made).
inline const TrayRig& widgetsDisplay() {
  static TrayRig rig{""};
  static int argc = 1;
  static char name[] = "ui_tests";
  static char* argv[] = {name, nullptr};
  if (rig.available() && QApplication::instance() == nullptr) ::setenv("DISPLAY", rig.display().c_str(), 1), new QApplication(argc, argv);
  return rig;
}

}  // namespace wh::test
