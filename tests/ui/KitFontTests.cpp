// Every character the programs' texts hold is drawn by a face the kit carries, never by the
// system's fallback fonts (which on a plain machine may have none of them: empty boxes). The texts
// are the string literals of the sources themselves, so a text added later is checked too.
#include <QFile>
#include <QGlyphRun>
#include <QRawFont>
#include <QRegularExpression>
#include <QSet>
#include <QTextLayout>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "support/RigRequired.h"
#include "support/WidgetsApplication.h"
#include "ui/kit/NJFonts.h"

namespace wh::test {
namespace {

// The quoted texts of the agent's and the settings program's sources that hold anything beyond
// ASCII (a quote in a comment counts too: checking it does no harm).
std::vector<QString> programTexts() {
  const std::filesystem::path sources = std::filesystem::path(WRENHAVEN_TEST_SUPPORT_DIR) / ".." / ".." / "src";
  const std::regex quoted(R"("(?:[^"\\\n]|\\.)*")");
  std::vector<QString> texts;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(sources)) {
    if (entry.path().extension() != ".cpp" && entry.path().extension() != ".h") continue;
    std::stringstream content;
    content << std::ifstream(entry.path()).rdbuf();
    const std::string source = content.str();
    for (auto it = std::sregex_iterator(source.begin(), source.end(), quoted); it != std::sregex_iterator(); ++it) {
      const std::string text = it->str();
      if (std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; })) {
        texts.push_back(QString::fromStdString(text.substr(1, text.size() - 2)));
      }
    }
  }
  return texts;
}

TEST(KitFontTest, EveryCharacterOfTheTextsIsDrawnByABundledFace) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  ASSERT_EQ(nj::NJFonts::registerFonts(), nj::NJFonts::faceCount);
  const std::vector<QString> texts = programTexts();
  ASSERT_TRUE(std::any_of(texts.begin(), texts.end(), [](const QString& text) { return text.contains(QChar(0x23ED)); }))
      << "the walk finds the media keys row's ⏭︎";
  for (const QFont& font : {nj::NJFonts::sans(12), nj::NJFonts::mono(12)}) {
    QSet<QString> bundled;
    for (const QString& file : nj::NJFonts::faceFiles(font)) {
      QFile data(file);
      ASSERT_TRUE(data.open(QIODevice::ReadOnly)) << file.toStdString();
      bundled << QRawFont(data.readAll(), 12).familyName();
    }
    ASSERT_EQ(bundled.size(), font.families().size());
    for (QString text : texts) {
      // A variation selector (U+FE0E after ▶ asks for its text form) draws nothing itself: the
      // shaper hides it, whichever face it falls to.
      text.remove(QRegularExpression("[\\x{FE00}-\\x{FE0F}]"));
      QTextLayout layout(text, font);
      layout.beginLayout();
      while (layout.createLine().isValid()) {
      }
      layout.endLayout();
      for (const QGlyphRun& run : layout.glyphRuns()) {
        const QString family = run.rawFont().familyName();
        EXPECT_TRUE(bundled.contains(family)) << font.family().toStdString() << " leaves part of \""
                                              << text.toStdString() << "\" to the system's " << family.toStdString();
        const auto glyphs = run.glyphIndexes();
        EXPECT_FALSE(glyphs.contains(0)) << family.toStdString() << " draws a box in \"" << text.toStdString() << "\"";
      }
    }
  }
}

}  // namespace
}  // namespace wh::test
