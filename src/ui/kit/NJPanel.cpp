#include "ui/kit/NJPanel.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>

#include "ui/kit/NJTokens.h"

namespace nj {
namespace {

// Room between the panel and the icon or pointer, and between the panel and the screen's edge.
constexpr int anchorGap = 6;
constexpr int screenMargin = 8;

void paintFrame(QWidget& widget, double radius) {
  const NJColors& c = NJTokens::colors(widget.palette());
  QPainter painter(&widget);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(c.border, 1.0));
  painter.setBrush(c.window);
  painter.drawRoundedRect(QRectF(widget.rect()).adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
}

}  // namespace

NJPanel::NJPanel(QWidget* parent) : QWidget(parent, Qt::Popup | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint) {
  setAttribute(Qt::WA_TranslucentBackground);
  setFixedWidth(NJTokens::panelWidth);
}

void NJPanel::placeNear(const QRect& anchor, const QPoint& pointer) {
  adjustSize();
  const QPoint origin = anchor.isValid() ? QPoint(anchor.center().x(), anchor.bottom()) : pointer;
  QScreen* screen = QGuiApplication::screenAt(origin);
  if (screen == nullptr) screen = QGuiApplication::primaryScreen();
  const QRect area = screen != nullptr ? screen->availableGeometry().adjusted(screenMargin, screenMargin, -screenMargin, -screenMargin)
                                       : QRect(origin, size());
  QPoint topLeft(origin.x() - width() / 2, origin.y() + anchorGap);
  // A tray at the bottom of the screen: open upwards.
  if (topLeft.y() + height() > area.bottom()) {
    topLeft.setY((anchor.isValid() ? anchor.top() : origin.y()) - anchorGap - height());
  }
  topLeft.setX(std::clamp(topLeft.x(), area.left(), std::max(area.left(), area.right() - width())));
  topLeft.setY(std::clamp(topLeft.y(), area.top(), std::max(area.top(), area.bottom() - height())));
  move(topLeft);
}

void NJPanel::paintEvent(QPaintEvent*) { paintFrame(*this, NJTokens::radiusPanel); }

void NJPanel::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  emit hidden();
}

void NJPanel::changeEvent(QEvent* event) {
  if (event->type() == QEvent::PaletteChange) update();
  QWidget::changeEvent(event);
}

NJWindow::NJWindow(const QString& title, QWidget* parent) : QWidget(parent, Qt::Window) {
  setWindowTitle(title);
  setAttribute(Qt::WA_TranslucentBackground);
  setWindowFlag(Qt::FramelessWindowHint);
}

void NJWindow::paintEvent(QPaintEvent*) { paintFrame(*this, NJTokens::radiusPanel); }

}  // namespace nj
