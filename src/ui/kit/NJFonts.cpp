#include "ui/kit/NJFonts.h"

#include <QFontDatabase>

#include "core/log/Log.h"

// Resources are named outside any namespace.
static void initFontResources() { Q_INIT_RESOURCE(fonts); }

namespace nj {
namespace {

struct Face {
  const char* resource;
  QString family;
};

// The application's font database is process-wide; so are the families it gave the faces.
struct Faces {
  Face sans{":/fonts/InstrumentSans-SemiBold.ttf", {}};
  Face mono{":/fonts/GeistMono-Medium.ttf", {}};
  Face symbols2{":/fonts/NotoSansSymbols2-Regular.ttf", {}};
  Face symbols{":/fonts/NotoSansSymbols-Regular.ttf", {}};
};

Faces& faces() {
  static Faces all;
  return all;
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

QFont font(std::initializer_list<const Face*> chain, const char* fallback, double pointSize, QFont::Weight weight) {
  QStringList families;
  for (const Face* face : chain) {
    if (!face->family.isEmpty()) families << face->family;
  }
  if (families.isEmpty()) families << fallback;
  QFont result(families.front());
  result.setFamilies(families);
  result.setPointSizeF(pointSize);
  result.setWeight(weight);
  result.setHintingPreference(QFont::PreferVerticalHinting);
  return result;
}

}  // namespace

int NJFonts::registerFonts() {
  initFontResources();
  Faces& all = faces();
  int loaded = 0;
  for (Face* face : {&all.sans, &all.mono, &all.symbols2, &all.symbols}) loaded += static_cast<int>(load(*face));
  return loaded;
}

QFont NJFonts::sans(double pointSize) {
  const Faces& all = faces();
  return font({&all.sans, &all.symbols2, &all.symbols, &all.mono}, "sans-serif", pointSize, QFont::DemiBold);
}

QFont NJFonts::mono(double pointSize) {
  const Faces& all = faces();
  return font({&all.mono, &all.symbols2, &all.symbols}, "monospace", pointSize, QFont::Medium);
}

QStringList NJFonts::faceFiles(const QFont& font) {
  const Faces& all = faces();
  QStringList files;
  for (const QString& family : font.families()) {
    for (const Face* face : {&all.sans, &all.mono, &all.symbols2, &all.symbols}) {
      if (!face->family.isEmpty() && face->family == family) files << face->resource;
    }
  }
  return files;
}

}  // namespace nj
