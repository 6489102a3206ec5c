#include "ui/kit/NJGlyphs.h"

#include <QPainterPath>
#include <QPainterPathStroker>

#include <algorithm>

#include "ui/kit/NJTokens.h"

namespace nj {
namespace {

constexpr double grid = 24.0;
constexpr double stroke = 1.8;

QPainterPath headphones() {
  QPainterPath path;
  path.moveTo(4.5, 14.5);
  path.cubicTo(4.5, 3.0, 19.5, 3.0, 19.5, 14.5);
  path.addRoundedRect(QRectF(3.2, 13.0, 4.6, 7.5), 1.8, 1.8);
  path.addRoundedRect(QRectF(16.2, 13.0, 4.6, 7.5), 1.8, 1.8);
  return path;
}

QPainterPath earbud(double headX, double stemX) {
  QPainterPath head;
  head.addEllipse(QPointF(headX, 8.0), 3.4, 3.4);
  QPainterPath stem;
  stem.addRoundedRect(QRectF(stemX, 8.0, 2.6, 12.0), 1.3, 1.3);
  return head.united(stem);
}

QPainterPath earbuds() {
  QPainterPath path = earbud(6.6, 7.4);
  path.addPath(earbud(17.4, 14.0));
  return path;
}

QPainterPath speaker() {
  QPainterPath path;
  path.addRoundedRect(QRectF(5.5, 2.8, 13.0, 18.4), 3.0, 3.0);
  path.addEllipse(QPointF(12.0, 7.6), 1.7, 1.7);
  path.addEllipse(QPointF(12.0, 14.8), 3.6, 3.6);
  return path;
}

QPainterPath bluetooth() {
  QPainterPath path;
  path.moveTo(7.0, 7.5);
  path.lineTo(16.5, 16.0);
  path.lineTo(12.0, 20.5);
  path.lineTo(12.0, 3.5);
  path.lineTo(16.5, 8.0);
  path.lineTo(7.0, 16.5);
  return path;
}

QPainterPath mic() {
  QPainterPath path;
  path.addRoundedRect(QRectF(9.0, 3.0, 6.0, 11.0), 3.0, 3.0);
  path.moveTo(5.8, 11.5);
  path.cubicTo(5.8, 19.0, 18.2, 19.0, 18.2, 11.5);
  path.moveTo(12.0, 17.2);
  path.lineTo(12.0, 21.0);
  return path;
}

QPainterPath keys() {
  QPainterPath path;
  path.addRoundedRect(QRectF(2.8, 5.0, 18.4, 14.0), 3.0, 3.0);
  path.moveTo(7.5, 9.0);
  path.lineTo(11.5, 12.0);
  path.lineTo(7.5, 15.0);
  path.closeSubpath();
  path.moveTo(14.0, 9.0);
  path.lineTo(14.0, 15.0);
  path.moveTo(17.0, 9.0);
  path.lineTo(17.0, 15.0);
  return path;
}

QPainterPath disc() {
  QPainterPath path;
  path.addEllipse(QPointF(12.0, 12.0), 9.0, 9.0);
  path.addEllipse(QPointF(12.0, 12.0), 2.4, 2.4);
  path.moveTo(12.0, 6.0);
  path.arcTo(QRectF(6.0, 6.0, 12.0, 12.0), 90.0, 60.0);
  return path;
}

QPainterPath battery() {
  QPainterPath path;
  path.addRoundedRect(QRectF(2.5, 7.0, 17.0, 10.0), 2.6, 2.6);
  path.addRoundedRect(QRectF(20.3, 10.2, 1.8, 3.6), 0.8, 0.8);
  return path;
}

QPainterPath more() {
  QPainterPath path;
  for (double x : {6.0, 12.0, 18.0}) path.addEllipse(QPointF(x, 12.0), 1.6, 1.6);
  return path;
}

// The wren: a round body with a raised tail, sitting on a sound wave.
QPainterPath wren() {
  QPainterPath path;
  path.moveTo(6.0, 13.0);
  path.cubicTo(6.0, 8.0, 10.5, 6.5, 13.5, 8.0);
  path.lineTo(17.5, 4.0);
  path.lineTo(16.5, 10.0);
  path.cubicTo(18.0, 13.5, 15.0, 16.5, 11.0, 16.0);
  path.cubicTo(8.0, 15.6, 6.0, 14.5, 6.0, 13.0);
  path.closeSubpath();
  path.moveTo(4.5, 19.0);
  path.cubicTo(7.0, 17.2, 9.0, 20.8, 12.0, 19.0);
  path.cubicTo(15.0, 17.2, 17.0, 20.8, 19.5, 19.0);
  return path;
}

QPainterPath pathOf(NJGlyph glyph) {
  switch (glyph) {
    case NJGlyph::earbuds: return earbuds();
    case NJGlyph::headphones: return headphones();
    case NJGlyph::speaker: return speaker();
    case NJGlyph::battery: return battery();
    case NJGlyph::bluetooth: return bluetooth();
    case NJGlyph::mic: return mic();
    case NJGlyph::keys: return keys();
    case NJGlyph::disc: return disc();
    case NJGlyph::more: return more();
    case NJGlyph::brand: return wren();
  }
  return {};
}

// Glyphs drawn as outlines; the others are filled.
bool stroked(NJGlyph glyph) { return glyph != NJGlyph::more; }

void onGrid(QPainter& painter, const QRectF& box) {
  painter.translate(box.topLeft());
  painter.scale(box.width() / grid, box.height() / grid);
}

}  // namespace

NJGlyph NJGlyphs::forDevice(wh::DeviceIcon icon) {
  switch (icon) {
    case wh::DeviceIcon::earbuds: return NJGlyph::earbuds;
    case wh::DeviceIcon::speaker: return NJGlyph::speaker;
    case wh::DeviceIcon::headphones: break;
  }
  return NJGlyph::headphones;
}

void NJGlyphs::paint(QPainter& painter, NJGlyph glyph, const QRectF& box, const QColor& color) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  onGrid(painter, box);
  QPainterPath path = pathOf(glyph);
  // A stroked glyph is drawn as the filled outline of its stroke: the same picture, and in an SVG
  // a shape that hosts recolouring symbolic icons (by their fill) can recolour.
  if (stroked(glyph)) {
    QPainterPathStroker stroker;
    stroker.setWidth(stroke);
    stroker.setCapStyle(Qt::RoundCap);
    stroker.setJoinStyle(Qt::RoundJoin);
    path = stroker.createStroke(path);
  }
  painter.setPen(Qt::NoPen);
  painter.setBrush(color);
  painter.drawPath(path);
  painter.restore();
}

void NJGlyphs::paintBattery(QPainter& painter, const QRectF& box, int percent, const QColor& color, const QColor& low) {
  const QColor tint = percent <= lowBattery ? low : color;
  paint(painter, NJGlyph::battery, box, tint);
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  onGrid(painter, box);
  painter.setPen(Qt::NoPen);
  painter.setBrush(tint);
  const double width = 13.0 * std::clamp(percent, 0, 100) / 100.0;
  painter.drawRoundedRect(QRectF(4.5, 9.0, std::max(width, 1.2), 6.0), 1.2, 1.2);
  painter.restore();
}

void NJGlyphs::paintBrand(QPainter& painter, const QRectF& box, const QColor& accent, const QColor& figure) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  onGrid(painter, box);
  QLinearGradient tile(0, 0, 0, grid);
  tile.setColorAt(0, accent.lighter(112));
  tile.setColorAt(1, accent.darker(108));
  painter.setPen(Qt::NoPen);
  painter.setBrush(tile);
  painter.drawRoundedRect(QRectF(0, 0, grid, grid), 6.0, 6.0);
  painter.setPen(QPen(figure, stroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter.setBrush(Qt::NoBrush);
  painter.drawPath(wren());
  painter.setPen(Qt::NoPen);
  painter.setBrush(figure);
  painter.drawEllipse(QPointF(10.0, 10.6), 0.9, 0.9);
  painter.restore();
}

QIcon NJGlyphs::brandIcon(const QString& themeName) {
  if (QIcon::hasThemeIcon(themeName)) return QIcon::fromTheme(themeName);
  QIcon icon;
  for (int size : {16, 32, 64, 128, 256}) {
    QPixmap image(size, size);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    paintBrand(painter, QRectF(0, 0, size, size), NJTokens::light().accent, NJTokens::light().accentText);
    painter.end();
    icon.addPixmap(image);
  }
  return icon;
}

QPixmap NJGlyphs::pixmap(NJGlyph glyph, int size, const QColor& color, double pixelRatio) {
  QPixmap image(QSize(size, size) * pixelRatio);
  image.setDevicePixelRatio(pixelRatio);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  paint(painter, glyph, QRectF(0, 0, size, size), color);
  return image;
}

void NJGlyphs::paintTray(QPainter& painter, int size, NJGlyph glyph, NJGlyphState state, std::optional<int> battery,
                         const QColor& color, const QColor& accent, const QColor& warning) {
  painter.setRenderHint(QPainter::Antialiasing);
  QColor tint = color;
  if (state == NJGlyphState::idle) tint.setAlphaF(0.45);
  const double glyphSize = battery ? size * 0.82 : size;
  paint(painter, glyph, QRectF(0, 0, glyphSize, glyphSize), tint);
  const double dot = size * 0.3;
  const QRectF corner(size - dot, 0, dot, dot);
  painter.setPen(Qt::NoPen);
  if (state == NJGlyphState::busy) {
    painter.setPen(QPen(accent, size / 12.0, Qt::DotLine, Qt::RoundCap));
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(corner.adjusted(1, 1, -1, -1));
  } else if (state == NJGlyphState::failed) {
    painter.setBrush(warning);
    painter.drawEllipse(corner);
  } else if (state == NJGlyphState::active) {
    painter.setBrush(accent);
    painter.drawEllipse(corner.adjusted(dot * 0.15, dot * 0.15, -dot * 0.15, -dot * 0.15));
  }
  if (battery) {
    const double bar = size * 0.22;
    const QRectF track(size * 0.1, size - bar * 0.75, size * 0.8, bar * 0.6);
    painter.setPen(Qt::NoPen);
    QColor faint = tint;
    faint.setAlpha(70);
    painter.setBrush(faint);
    painter.drawRoundedRect(track, track.height() / 2, track.height() / 2);
    painter.setBrush(*battery <= lowBattery ? warning : tint);
    QRectF fill = track;
    fill.setWidth(std::max(track.height(), track.width() * std::clamp(*battery, 0, 100) / 100.0));
    painter.drawRoundedRect(fill, track.height() / 2, track.height() / 2);
  }
}

QIcon NJGlyphs::trayIcon(NJGlyph glyph, NJGlyphState state, std::optional<int> battery, const QColor& color,
                         const QColor& accent, const QColor& warning) {
  QIcon icon;
  for (int size : {16, 22, 24, 32, 48}) {
    for (double ratio : {1.0, 2.0}) {
      QPixmap image(QSize(size, size) * ratio);
      image.setDevicePixelRatio(ratio);
      image.fill(Qt::transparent);
      QPainter painter(&image);
      paintTray(painter, size, glyph, state, battery, color, accent, warning);
      painter.end();
      icon.addPixmap(image);
    }
  }
  return icon;
}

}  // namespace nj
