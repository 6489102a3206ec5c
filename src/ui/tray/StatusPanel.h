#pragma once
// The panel under the main tray item: the devices section, the music quality and media keys rows,
// the app volume section, the footer actions and the "More options" menu, read afresh from the panel model each time it changes.

#include <QPointer>
#include <QVBoxLayout>

#include "core/ui/PanelRows.h"
#include "core/ui/StatusMenuController.h"
#include "ui/kit/NJGlyphs.h"
#include "ui/kit/NJPanel.h"

class QMenu;

namespace wh::tray {

class StatusPanel : public nj::NJPanel {
  Q_OBJECT
 public:
  StatusPanel(ui::StatusMenuController& controller, const Runtime& runtime);

  // Reads the model again and rebuilds the content (later, when one of its menus is open).
  void rebuild();

 protected:
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void addHeader(QVBoxLayout& layout);
  void addDevices(QVBoxLayout& layout);
  void addRow(QVBoxLayout& layout, ui::PanelRow row, nj::NJGlyph glyph);
  void addAppVolumes(QVBoxLayout& layout);
  void addAppVolume(QVBoxLayout& layout, const ui::AppVolumeRow& app);
  void addFooter(QVBoxLayout& layout);
  void popUp(const ui::Menu& entries, QWidget* below);

  ui::StatusMenuController& controller_;
  const Runtime& runtime_;
  QPointer<QWidget> content_;
  bool menuOpen_ = false;
  bool stale_ = false;
};

}  // namespace wh::tray
