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
#include <sstream>

#include "support/RigRequired.h"
#include "support/WidgetsApplication.h"
#include "ui/kit/NJFonts.h"

namespace wh::test {
namespace {

// The string literals of one C++ source, comments and character literals left out.
std::vector<std::string> stringLiterals(const std::string& source) {
  std::vector<std::string> literals;
  for (std::size_t i = 0; i < source.size(); ++i) {
    const char c = source[i];
    if (c == '/' && i + 1 < source.size() && source[i + 1] == '/') {
      i = source.find('\n', i);
      if (i == std::string::npos) break;
    } else if (c == '/' && i + 1 < source.size() && source[i + 1] == '*') {
      i = source.find("*/", i + 2);
      if (i == std::string::npos) break;
      ++i;
    } else if (c == 'R' && source.compare(i, 2, "R\"") == 0) {
      const std::size_t open = source.find('(', i + 2);
      const std::string close = ")" + source.substr(i + 2, open - i - 2) + "\"";
      const std::size_t end = source.find(close, open);
      literals.push_back(source.substr(open + 1, end - open - 1));
      i = end + close.size() - 1;
    } else if (c == '"' || c == '\'') {
      std::string text;
      for (++i; i < source.size() && source[i] != c; ++i) {
        if (source[i] == '\\') ++i;  // an escape stands for an ASCII character here
        text += source[i];
      }
      if (c == '"') literals.push_back(text);
    }
  }
  return literals;
}

// The texts of the agent and the settings program that hold anything beyond ASCII.
std::vector<QString> programTexts() {
  const std::filesystem::path sources = std::filesystem::path(WRENHAVEN_TEST_SUPPORT_DIR) / ".." / ".." / "src";
  std::vector<QString> texts;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(sources)) {
    const auto extension = entry.path().extension();
    if (extension != ".cpp" && extension != ".h") continue;
    std::ifstream file(entry.path());
    std::stringstream content;
    content << file.rdbuf();
    for (const std::string& literal : stringLiterals(content.str())) {
      const bool plain = std::all_of(literal.begin(), literal.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
      if (!plain) texts.push_back(QString::fromStdString(literal));
    }
  }
  return texts;
}

TEST(KitFontTest, TheSourcesTextsAreFoundWithTheirSymbols) {
  const auto literals = stringLiterals("a(\"x\\\"y\"); // \"⌘ no\"\n/* \"⏭︎ no\" */ b('\"'); c(R\"(⏮︎ \"q\")\");");
  EXPECT_EQ(literals, (std::vector<std::string>{"x\"y", "⏮︎ \"q\""}));
  std::size_t withMediaKeys = 0;
  for (const QString& text : programTexts()) withMediaKeys += text.contains(QChar(0x23ED));
  EXPECT_GE(withMediaKeys, 1u) << "the walk misses the media keys row's text";
}

TEST(KitFontTest, EveryCharacterOfTheTextsIsDrawnByABundledFace) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  ASSERT_EQ(nj::NJFonts::registerFonts(), nj::NJFonts::faceCount);
  const std::vector<QString> texts = programTexts();
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
