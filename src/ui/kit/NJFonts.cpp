#include "ui/kit/NJFonts.h"

#include <QFontDatabase>
#include <QStringList>

#include "core/log/Log.h"

// Resources are named outside any namespace.
static void initFontResources() { Q_INIT_RESOURCE(fonts); }

namespace nj {
namespace {

struct Face {
  const char* resource;
  QString family;
};

Face& sansFace() {
  static Face face{":/fonts/InstrumentSans-SemiBold.ttf", {}};
  return face;
}
Face& monoFace() {
  static Face face{":/fonts/GeistMono-Medium.ttf", {}};
  return face;
}

bool load(Face& face) {
  const int id = QFontDatabase::addApplicationFont(face.resource);
  if (id < 0) {
    wh::Log::error(std::string("could not load the font ") + face.resource);
    return false;
  }
  const QStringList families = QFontDatabase::applicationFontFamilies(id);
  if (!families.isEmpty()) face.family = families.front();
  return true;
}

QFont font(const Face& face, const char* fallback, double pointSize, QFont::Weight weight) {
  QFont result(face.family.isEmpty() ? QString(fallback) : face.family);
  result.setPointSizeF(pointSize);
  result.setWeight(weight);
  result.setHintingPreference(QFont::PreferVerticalHinting);
  return result;
}

}  // namespace

int NJFonts::registerFonts() {
  initFontResources();
  return static_cast<int>(load(sansFace())) + static_cast<int>(load(monoFace()));
}

QFont NJFonts::sans(double pointSize) { return font(sansFace(), "sans-serif", pointSize, QFont::DemiBold); }

QFont NJFonts::mono(double pointSize) { return font(monoFace(), "monospace", pointSize, QFont::Medium); }

}  // namespace nj
