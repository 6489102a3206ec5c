#pragma once
// Tray icons the desktop's bar draws in its own colours. A StatusNotifierItem host looks an icon up
// by name in the icon theme, or in a folder the item names (IconThemePath). GNOME Shell's
// AppIndicator extension paints an icon whose name ends in "-symbolic" in the bar's text colour
// (paths take that colour, CSS classes "error", "warning" and "success" take the theme's); KDE
// Plasma recolours the classes of its own colour scheme ("ColorScheme-Text", ...) in any SVG. Other
// GTK-drawn trays (waybar, Xfce) paint "-symbolic" icons in GTK's fixed light grey whatever their
// bar is, so there the icon is named plainly and drawn in its own mid grey, which stands out from
// dark and light bars alike. Each look of an item is written once, into a folder of this program's
// run, under a name made from its content: a new look is a new name, which every host loads
// afresh. A host that can use none of this shows the item's pixmaps.

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

#include "ui/kit/NJGlyphs.h"

namespace wh::tray {

class SymbolicTrayIcons {
 public:
  // The folder, made (and emptied of an earlier run's icons) now. `symbolicNames`: the host
  // recolours icons named "-symbolic" (shellRecolours()).
  SymbolicTrayIcons(QString folder, bool symbolicNames);
  ~SymbolicTrayIcons();
  SymbolicTrayIcons(const SymbolicTrayIcons&) = delete;
  SymbolicTrayIcons& operator=(const SymbolicTrayIcons&) = delete;

  // The folder hosts look in: $XDG_RUNTIME_DIR/wrenhaven/tray-icons-<pid>. Folders of programs
  // that ended without removing theirs are removed.
  static QString defaultFolder();
  // Whether the desktop's shell draws "-symbolic" tray icons in its bar's colours (GNOME, Unity), by
  // XDG_CURRENT_DESKTOP.
  static bool shellRecolours();

  // A tray glyph as a symbolic SVG: the glyph and battery bar in the text colour (the bar's), a low
  // battery as an error, the state's dot in its own colour.
  static QByteArray svg(nj::NJGlyph glyph, nj::NJGlyphState state, std::optional<int> battery);

  // Writes `svg` for `item` (an item id, which starts with the program's name) and answers the
  // name to give the host (nothing when the folder cannot
  // be written); the item's previous icon is removed.
  std::optional<QString> put(const QString& item, const QByteArray& svg);
  const QString& folder() const { return folder_; }

 private:
  static void removeLeftovers(const QString& parent);

  QString folder_;
  bool symbolicNames_;
  bool usable_ = false;
  QMap<QString, QString> current_;  // item -> the name of its icon now
};

}  // namespace wh::tray
