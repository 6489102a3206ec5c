#pragma once
// The kit's frames: the drop-down panel under a tray icon and the small window for everything
// else. Both paint a rounded surface with a hairline outline in the current theme.

#include <QWidget>

namespace nj {

class NJPanel : public QWidget {
  Q_OBJECT
 public:
  explicit NJPanel(QWidget* parent = nullptr);

  // Whether windows can place themselves on the screen (X11), so that the panel is a popup at the
  // icon; on Wayland it is a window that the compositor places.
  static bool windowsPlaceThemselves();

  // Places the panel below `anchor` (the tray icon's rectangle), or under `pointer` (where the
  // tray says it was clicked, or the pointer) when the tray cannot say where its icon is, kept
  // inside the screen's available area, off the bars that area leaves out.
  void placeNear(const QRect& anchor, const QPoint& pointer);

 signals:
  void hidden();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void changeEvent(QEvent* event) override;
};

class NJWindow : public QWidget {
  Q_OBJECT
 public:
  explicit NJWindow(const QString& title, QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent* event) override;
};

}  // namespace nj
