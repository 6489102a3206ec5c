#include "ui/tray/SymbolicTrayIcons.h"

#include <signal.h>
#include <unistd.h>

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QPainter>
#include <QStandardPaths>
#include <QSvgGenerator>

#include <cerrno>

namespace wh::tray {
namespace {

constexpr int kSize = 24;
// Colours the drawing is made in, to be told apart in the SVG and replaced by classes.
const QColor kText(0x01, 0x02, 0x03);
const QColor kLow(0x04, 0x05, 0x06);
// The state's dot keeps its colour: hosts that recolour paths leave ellipses alone.
const QColor kActive(0x2e, 0xc2, 0x7e);
const QColor kFailed(0xe0, 0x1b, 0x24);
// Where hosts look for the icon: unthemed files at the top, and the hicolor layout below it.
constexpr const char* kThemed = "hicolor/scalable/status";
// KDE Plasma replaces this style sheet by its colour scheme's. Elsewhere it gives the icon's own
// colours: a grey halfway between dark and light bars.
constexpr const char* kColourScheme =
    "<style id=\"current-color-scheme\" type=\"text/css\">.ColorScheme-Text{color:#808080}"
    ".ColorScheme-NegativeText{color:#da4453}</style>";

// Gives every element drawn in `colour` the classes, and the current colour instead.
void recolour(QByteArray& svg, const QColor& colour, const char* classes) {
  const QByteArray from = "fill=\"" + colour.name().toLatin1() + "\"";
  const QByteArray to = "fill=\"currentColor\" class=\"" + QByteArray(classes) + "\"";
  for (qsizetype group = svg.indexOf("<g "); group >= 0; group = svg.indexOf("<g ", group + 1)) {
    const qsizetype tagEnd = svg.indexOf('>', group);
    const qsizetype end = svg.indexOf("</g>", group);
    if (tagEnd < 0 || end < 0 || svg.mid(group, tagEnd - group).indexOf(from) < 0) continue;
    // The group's paths carry the classes too: GTK's symbolic style sheet selects paths.
    QByteArray body = svg.mid(group, end - group);
    body.replace(from, to);
    body.replace("<path ", "<path class=\"" + QByteArray(classes) + "\" ");
    svg.replace(group, end - group, body);
  }
}

}  // namespace

SymbolicTrayIcons::SymbolicTrayIcons(QString folder, bool symbolicNames)
    : folder_(std::move(folder)), symbolicNames_(symbolicNames) {
  QDir dir(folder_);
  if (dir.exists()) dir.removeRecursively();
  usable_ = QDir().mkpath(folder_ + "/" + kThemed);
}

void SymbolicTrayIcons::removeLeftovers(const QString& parent) {
  // Folders are named "tray-icons-<pid>"; one whose program has ended was left by a crash.
  for (const QString& name : QDir(parent).entryList({QStringLiteral("tray-icons-*")}, QDir::Dirs)) {
    bool number = false;
    const auto pid = static_cast<pid_t>(name.mid(QStringLiteral("tray-icons-").size()).toLong(&number));
    if (number && pid > 0 && ::kill(pid, 0) != 0 && errno == ESRCH) QDir(parent + "/" + name).removeRecursively();
  }
}

SymbolicTrayIcons::~SymbolicTrayIcons() {
  if (usable_) QDir(folder_).removeRecursively();
}

QString SymbolicTrayIcons::defaultFolder() {
  QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  if (runtime.isEmpty()) runtime = QDir::tempPath();
  const QString parent = runtime + "/wrenhaven";
  removeLeftovers(parent);
  return parent + "/tray-icons-" + QString::number(::getpid());
}

QByteArray SymbolicTrayIcons::svg(nj::NJGlyph glyph, nj::NJGlyphState state, std::optional<int> battery) {
  QBuffer buffer;
  QSvgGenerator generator;
  generator.setOutputDevice(&buffer);
  generator.setSize(QSize(kSize, kSize));
  generator.setViewBox(QRect(0, 0, kSize, kSize));
  QPainter painter(&generator);
  nj::NJGlyphs::paintTray(painter, kSize, glyph, state, battery, kText, kActive, battery ? kLow : kFailed);
  painter.end();
  QByteArray svg = buffer.data();
  // A failed state's dot is drawn in kLow too while a battery shows; it is an ellipse, which keeps
  // its colour wherever it is drawn.
  recolour(svg, kLow, "ColorScheme-NegativeText error");
  recolour(svg, kText, "ColorScheme-Text");
  svg.replace(kLow.name().toLatin1(), kFailed.name().toLatin1());
  const qsizetype open = svg.indexOf('>', svg.indexOf("<svg"));
  if (open >= 0) svg.insert(open + 1, QByteArray("\n") + kColourScheme);
  return svg;
}

bool SymbolicTrayIcons::shellRecolours() {
  for (const QString& desktop : qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(':')) {
    if (desktop.compare(QLatin1String("GNOME"), Qt::CaseInsensitive) == 0 ||
        desktop.compare(QLatin1String("Unity"), Qt::CaseInsensitive) == 0) {
      return true;
    }
  }
  return false;
}

std::optional<QString> SymbolicTrayIcons::put(const QString& item, const QByteArray& svg) {
  if (!usable_) return std::nullopt;
  const QString name = item + "-" +
                       QString::fromLatin1(QCryptographicHash::hash(svg, QCryptographicHash::Sha1).toHex().left(12)) +
                       (symbolicNames_ ? "-symbolic" : "");
  if (current_.value(item) == name) return name;
  for (const QString& path : {folder_ + "/" + name + ".svg", folder_ + "/" + kThemed + "/" + name + ".svg"}) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(svg) != svg.size()) return std::nullopt;
  }
  if (const QString previous = current_.value(item); !previous.isEmpty()) {
    QFile::remove(folder_ + "/" + previous + ".svg");
    QFile::remove(folder_ + "/" + kThemed + "/" + previous + ".svg");
  }
  current_.insert(item, name);
  return name;
}

}  // namespace wh::tray
