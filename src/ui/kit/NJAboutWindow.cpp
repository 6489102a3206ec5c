#include "ui/kit/NJAboutWindow.h"

#include <QKeyEvent>
#include <QPainter>

#include "ui/kit/NJFonts.h"
#include "ui/kit/NJGlyphs.h"
#include "ui/kit/NJTokens.h"

namespace nj {
namespace {

constexpr int aboutWidth = 300;
constexpr int aboutHeight = 230;
constexpr int markSize = 64;

}  // namespace

NJAboutWindow::NJAboutWindow(const QString& version, QWidget* parent)
    : NJWindow("About Wrenhaven", parent), version_(version) {
  setFixedSize(aboutWidth, aboutHeight);
}

void NJAboutWindow::paintEvent(QPaintEvent* event) {
  NJWindow::paintEvent(event);
  const NJColors& c = NJTokens::colors(palette());
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  NJGlyphs::paintBrand(painter, QRectF((width() - markSize) / 2.0, 28, markSize, markSize), c.accent, c.accentText);
  painter.setPen(c.text);
  painter.setFont(NJFonts::sans(15));
  painter.drawText(QRectF(0, 104, width(), 28), Qt::AlignCenter, "Wrenhaven");
  painter.setPen(c.secondaryText);
  painter.setFont(NJFonts::mono(NJTokens::captionSize));
  painter.drawText(QRectF(0, 134, width(), 18), Qt::AlignCenter, "Version " + version_);
  QFont small = NJFonts::sans(NJTokens::captionSize);
  small.setWeight(QFont::Normal);
  painter.setFont(small);
  painter.drawText(QRectF(24, 162, width() - 48, 48), Qt::AlignCenter | Qt::TextWordWrap,
                   "Headphones that behave.\nSet in Instrument Sans and Geist Mono (SIL Open Font License).");
}

void NJAboutWindow::mouseReleaseEvent(QMouseEvent*) { close(); }

void NJAboutWindow::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) close();
}

}  // namespace nj
