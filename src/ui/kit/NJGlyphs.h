#pragma once
// The kit's vector glyphs and brand mark, drawn with painter paths on a 24-unit grid so that they
// stay crisp at any size and pixel ratio.

#include <QColor>
#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QRectF>

#include <optional>

#include "core/settings/Records.h"

namespace nj {

enum class NJGlyph { earbuds, headphones, speaker, battery, bluetooth, mic, keys, disc, more, brand };

// How a tray glyph shows a connection.
enum class NJGlyphState { plain, idle, busy, active, failed };

class NJGlyphs {
 public:
  // The glyph of a headphones' icon kind.
  static NJGlyph forDevice(wh::DeviceIcon icon);
  static void paint(QPainter& painter, NJGlyph glyph, const QRectF& box, const QColor& color);
  // A battery outline filled to `percent`, warning-coloured at or below the low mark.
  static void paintBattery(QPainter& painter, const QRectF& box, int percent, const QColor& color, const QColor& low);
  // The brand mark: the accent tile with its white wren-and-wave figure.
  static void paintBrand(QPainter& painter, const QRectF& box, const QColor& accent, const QColor& figure);
  // The programs' window icon: `themeName` from the icon theme where it is installed, else the brand
  // mark drawn here (a program run from its build folder).
  static QIcon brandIcon(const QString& themeName);
  // A pixmap of `size` logical pixels at `pixelRatio`.
  static QPixmap pixmap(NJGlyph glyph, int size, const QColor& color, double pixelRatio);
  // A tray icon at the sizes trays ask for, at 1x and 2x: the glyph, its state, and a battery bar
  // when a level is known.
  static QIcon trayIcon(NJGlyph glyph, NJGlyphState state, std::optional<int> battery, const QColor& color,
                        const QColor& accent, const QColor& warning);
  // The same drawing at `size` pixels on any painter (a pixmap, an SVG).
  static void paintTray(QPainter& painter, int size, NJGlyph glyph, NJGlyphState state, std::optional<int> battery,
                        const QColor& color, const QColor& accent, const QColor& warning);

  // Levels at or below this show in the warning colour.
  static constexpr int lowBattery = 20;
};

}  // namespace nj
