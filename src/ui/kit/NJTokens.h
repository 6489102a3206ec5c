#pragma once
// The kit's design tokens: colours for the light and the dark theme, spacing, radii and type
// sizes. Every control reads them from here, so the panel follows the desktop's theme at once.

#include <QColor>
#include <QPalette>

namespace nj {

struct NJColors {
  QColor window;        // panel and window background
  QColor surface;       // raised areas: rows under the pointer, buttons
  QColor surfaceHover;
  QColor text;
  QColor secondaryText;
  QColor separator;
  QColor accent;        // brand, switches that are on, slider fill
  QColor accentText;    // text on the accent
  QColor positive;      // connected
  QColor warning;       // low battery, fighting
  QColor control;       // switch track when off, slider groove
  QColor knob;
  QColor border;        // the panel's outline
};

class NJTokens {
 public:
  // Spacing steps (logical pixels).
  static constexpr int space1 = 4;
  static constexpr int space2 = 8;
  static constexpr int space3 = 12;
  static constexpr int space4 = 16;
  // Corner radii.
  static constexpr double radiusSmall = 6.0;
  static constexpr double radiusRow = 8.0;
  static constexpr double radiusPanel = 14.0;
  // Type sizes (points).
  static constexpr double titleSize = 10.5;
  static constexpr double bodySize = 9.5;
  static constexpr double captionSize = 8.5;
  static constexpr double headerSize = 7.5;
  // Sizes of the controls.
  static constexpr int panelWidth = 340;
  static constexpr int rowHeight = 44;
  static constexpr int glyphSize = 20;

  static const NJColors& light();
  static const NJColors& dark();
  // The desktop's theme, read from the application palette: dark when its window colour is dark.
  static bool isDark(const QPalette& palette);
  static const NJColors& colors(const QPalette& palette) { return isDark(palette) ? dark() : light(); }
};

}  // namespace nj
