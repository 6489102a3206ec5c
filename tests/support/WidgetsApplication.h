#pragma once
// The widget tests' QApplication, on an X display (Xvfb) of its own that lives as long as the
// process, made by the first test that asks for it; and what the widget tests do with widgets.

#include <QApplication>
#include <QDir>

#include "support/TrayRig.h"
#include "ui/kit/NJControls.h"

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

// Clicks the button with that text, if `widget` shows one now, and lets the click take effect.
inline bool press(QWidget& widget, const QString& text) {
  for (auto* button : widget.findChildren<nj::NJButton*>()) {
    if (button->text() == text) return button->click(), QApplication::processEvents(), true;
  }
  return false;
}

// Saves the widget as `name`-light.png and `name`-dark.png in the screenshot folder, for review.
inline void saveInBothThemes(QWidget& widget, const QString& name) {
  QDir().mkpath(WRENHAVEN_SCREENSHOT_DIR);
  for (const char* theme : {"light", "dark"}) {
    QApplication::setPalette(theme[0] == 'd' ? QPalette(QColor(0x2b, 0x2b, 0x2b)) : QPalette(QColor(0xf4, 0xf4, 0xf4)));
    QApplication::processEvents();
    widget.grab().save(QString(WRENHAVEN_SCREENSHOT_DIR "/%1-%2.png").arg(name, theme));
  }
}

}  // namespace wh::test
