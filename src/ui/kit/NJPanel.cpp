#include "ui/kit/NJPanel.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>

#include <algorithm>

#include "ui/kit/NJTokens.h"

namespace nj {
namespace {

// Room between the panel and the icon or pointer, and between the panel and the screen's edge.
constexpr int anchorGap = 6;
constexpr int screenMargin = 8;
// How close to a screen's edge a click must be to have been on a bar along it.
constexpr int barGuess = 48;

void paintFrame(QWidget& widget, double radius) {
  const NJColors& c = NJTokens::colors(widget.palette());
  QPainter painter(&widget);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(c.border, 1.0));
  painter.setBrush(c.window);
  painter.drawRoundedRect(QRectF(widget.rect()).adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);
}

}  // namespace

bool NJPanel::windowsPlaceThemselves() { return !QGuiApplication::platformName().startsWith(QLatin1String("wayland")); }

NJPanel::NJPanel(QWidget* parent)
    : QWidget(parent, windowsPlaceThemselves()
                          ? Qt::Popup | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint
                          // On Wayland a popup needs a parent window to open from, which a tray
                          // icon is not, and the compositor places windows: an ordinary frameless
                          // window, closed when it loses the keyboard as a popup would be.
                          : Qt::Window | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint) {
  setAttribute(Qt::WA_TranslucentBackground);
  setFixedWidth(NJTokens::panelWidth);
  if (!windowsPlaceThemselves()) setWindowTitle(QStringLiteral("Wrenhaven"));
}

void NJPanel::placeNear(const QRect& anchor, const QPoint& pointer) {
  adjustSize();
  const QPoint origin = anchor.isValid() ? QPoint(anchor.center().x(), anchor.bottom()) : pointer;
  QScreen* screen = QGuiApplication::screenAt(origin);
  if (screen == nullptr) screen = QGuiApplication::primaryScreen();
  if (screen == nullptr) return move(origin);
  QRect available = screen->availableGeometry();
  // A point close to an edge that the available area does not leave out (a desktop that tells
  // no work area, as on XWayland) is taken as the middle of a bar along that edge.
  if (!anchor.isValid() && available.contains(origin)) {
    const QRect whole = screen->geometry();
    const int top = origin.y() - whole.top(), bottom = whole.bottom() - origin.y();
    const int left = origin.x() - whole.left(), right = whole.right() - origin.x();
    const int nearest = std::min({top, bottom, left, right});
    if (nearest < barGuess) {
      if (nearest == top) available.setTop(std::max(available.top(), whole.top() + 2 * top + 1));
      else if (nearest == bottom) available.setBottom(std::min(available.bottom(), whole.bottom() - 2 * bottom - 1));
      else if (nearest == left) available.setLeft(std::max(available.left(), whole.left() + 2 * left + 1));
      else available.setRight(std::min(available.right(), whole.right() - 2 * right - 1));
    }
  }
  const QRect area = available.adjusted(screenMargin, screenMargin, -screenMargin, -screenMargin);
  const auto fit = [&](QPoint topLeft) {
    topLeft.setX(std::clamp(topLeft.x(), area.left(), std::max(area.left(), area.right() - width())));
    topLeft.setY(std::clamp(topLeft.y(), area.top(), std::max(area.top(), area.bottom() - height())));
    move(topLeft);
  };
  // A point on a bar that the available area leaves out (the tray's own bar): the panel opens
  // against that bar's side of the area, never over the bar.
  if (!anchor.isValid() && !available.contains(origin)) {
    const QPoint centred(origin.x() - width() / 2, origin.y() - height() / 2);
    if (origin.y() < available.top()) return fit({centred.x(), area.top()});
    if (origin.y() > available.bottom()) return fit({centred.x(), area.bottom() - height()});
    if (origin.x() < available.left()) return fit({area.left(), centred.y()});
    return fit({area.right() - width(), centred.y()});
  }
  QPoint topLeft(origin.x() - width() / 2, origin.y() + anchorGap);
  // A tray at the bottom of the screen: open upwards.
  if (topLeft.y() + height() > area.bottom()) {
    topLeft.setY((anchor.isValid() ? anchor.top() : origin.y()) - anchorGap - height());
  }
  fit(topLeft);
}

void NJPanel::paintEvent(QPaintEvent*) { paintFrame(*this, NJTokens::radiusPanel); }

void NJPanel::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  emit hidden();
}

void NJPanel::changeEvent(QEvent* event) {
  if (event->type() == QEvent::PaletteChange) update();
  if (event->type() == QEvent::ActivationChange && !windowsPlaceThemselves() && isVisible() && !isActiveWindow()) {
    close();
  }
  QWidget::changeEvent(event);
}

NJWindow::NJWindow(const QString& title, QWidget* parent) : QWidget(parent, Qt::Window) {
  setWindowTitle(title);
  setAttribute(Qt::WA_TranslucentBackground);
  setWindowFlag(Qt::FramelessWindowHint);
}

void NJWindow::paintEvent(QPaintEvent*) { paintFrame(*this, NJTokens::radiusPanel); }

}  // namespace nj
