// Draws the brand mark into a hicolor icon tree at build time: one PNG per size and a scalable SVG,
// from the same painter code as the tray and the About window, so the installed icon never drifts
// from the one the programs draw.
// Usage: wrenhaven-brand-icons OUTPUT-DIR ICON-NAME

#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgGenerator>
#include <QDir>

#include <array>
#include <cstdio>

#include "ui/kit/NJGlyphs.h"
#include "ui/kit/NJTokens.h"

namespace {

// The sizes desktops ask for, from menus and docks up to the software centre.
constexpr std::array sizes{16, 22, 24, 32, 48, 64, 128, 256, 512};
constexpr int svgSize = 256;

bool drawPng(const QString& dir, const QString& name, int size, const nj::NJColors& colors) {
  const QString folder = QStringLiteral("%1/%2x%2/apps").arg(dir).arg(size);
  if (!QDir().mkpath(folder)) return false;
  QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  {
    QPainter painter(&image);
    nj::NJGlyphs::paintBrand(painter, QRectF(0, 0, size, size), colors.accent, colors.accentText);
  }
  return image.save(folder + "/" + name + ".png");
}

bool drawSvg(const QString& dir, const QString& name, const nj::NJColors& colors) {
  const QString folder = dir + "/scalable/apps";
  if (!QDir().mkpath(folder)) return false;
  QSvgGenerator svg;
  svg.setFileName(folder + "/" + name + ".svg");
  svg.setSize(QSize(svgSize, svgSize));
  svg.setViewBox(QRect(0, 0, svgSize, svgSize));
  svg.setTitle(name);
  QPainter painter;
  if (!painter.begin(&svg)) return false;
  nj::NJGlyphs::paintBrand(painter, QRectF(0, 0, svgSize, svgSize), colors.accent, colors.accentText);
  return painter.end();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: wrenhaven-brand-icons OUTPUT-DIR ICON-NAME\n");
    return 2;
  }
  // Drawing needs no screen; a build machine has none.
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);
  const QString dir = QString::fromLocal8Bit(argv[1]);
  const QString name = QString::fromLocal8Bit(argv[2]);
  const nj::NJColors colors = nj::NJTokens::light();
  bool written = drawSvg(dir, name, colors);
  for (int size : sizes) written = drawPng(dir, name, size, colors) && written;
  if (!written) {
    std::fprintf(stderr, "wrenhaven-brand-icons: could not write the icons under %s\n", argv[1]);
    return 1;
  }
  return 0;
}
