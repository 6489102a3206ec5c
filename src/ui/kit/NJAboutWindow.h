#pragma once
// The About window: the brand mark, the name, the version and the credits of the typefaces.

#include "ui/kit/NJPanel.h"

namespace nj {

class NJAboutWindow : public NJWindow {
  Q_OBJECT
 public:
  // `version` reads like "0.1.0 (1)".
  explicit NJAboutWindow(const QString& version, QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  QString version_;
};

}  // namespace nj
