// The tray's symbolic icons: each look is an SVG whose glyph takes the bar's colour where a host
// recolours it (KDE's colour scheme classes, GTK's symbolic paths), whose state dot keeps its own,
// and which is found under a name of its own in the folder hosts are told about.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include "support/RigRequired.h"
#include "support/TempDir.h"
#include "support/WidgetsApplication.h"
#include "ui/tray/SymbolicTrayIcons.h"

namespace wh::tray {
namespace {

using nj::NJGlyph;
using nj::NJGlyphState;

struct Look {
  const char* name;
  NJGlyph glyph;
  NJGlyphState state;
  std::optional<int> battery;
};

// The SVG drawn as a host with this text colour would: the colour scheme's style sheet replaced.
QImage drawn(QByteArray svg, const char* text) {
  svg.replace("color:#808080", QByteArray("color:") + text);
  QSvgRenderer renderer(svg);
  QImage image(48, 48, QImage::Format_ARGB32);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  renderer.render(&painter);
  return image;
}

// Pixels close to `colour`, however transparent.
int near(const QImage& image, QColor colour) {
  int count = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const QColor pixel = image.pixelColor(x, y);
      count += pixel.alpha() > 40 && std::abs(pixel.red() - colour.red()) + std::abs(pixel.green() - colour.green()) +
                                             std::abs(pixel.blue() - colour.blue()) < 60;
    }
  }
  return count;
}

class SymbolicTrayIconTest : public testing::TestWithParam<Look> {
 protected:
  void SetUp() override { REQUIRE_RIG(test::widgetsDisplay().available(), test::widgetsDisplay().whyNot()); }
};

TEST_P(SymbolicTrayIconTest, TheGlyphTakesTheBarsColourAndTheStateKeepsItsOwn) {
  const Look& look = GetParam();
  const QByteArray svg = SymbolicTrayIcons::svg(look.glyph, look.state, look.battery);
  ASSERT_TRUE(QSvgRenderer(svg).isValid()) << svg.toStdString();
  EXPECT_FALSE(svg.contains("#010203")) << "a stand-in colour is left: " << svg.toStdString();
  EXPECT_TRUE(svg.contains("class=\"ColorScheme-Text\"")) << svg.toStdString();
  for (const char* bar : {"#ffffff", "#1e1e1e"}) {
    EXPECT_GT(near(drawn(svg, bar), QColor(bar)), 30) << look.name << ": the glyph is not drawn in " << bar;
  }
  if (look.state == NJGlyphState::active) {
    EXPECT_GT(near(drawn(svg, "#ffffff"), QColor(0x2e, 0xc2, 0x7e)), 4) << "the connected dot keeps its colour";
  }
  if (look.battery && *look.battery <= nj::NJGlyphs::lowBattery) {
    EXPECT_TRUE(svg.contains("class=\"ColorScheme-NegativeText error\"")) << "a low battery is an error";
  }
  // Strokes are not recoloured by GTK's symbolic style sheet: every drawn shape is filled.
  EXPECT_FALSE(svg.contains("stroke=\"currentColor\"")) << svg.toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Looks, SymbolicTrayIconTest,
    testing::Values(Look{"brand", NJGlyph::brand, NJGlyphState::plain, std::nullopt},
                    Look{"idle_headphones", NJGlyph::headphones, NJGlyphState::idle, std::nullopt},
                    Look{"connected_earbuds_with_battery", NJGlyph::earbuds, NJGlyphState::active, 80},
                    Look{"failed_speaker_low_battery", NJGlyph::speaker, NJGlyphState::failed, 10}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(SymbolicTrayIconsTest, EachLookHasANameOfItsOwnAndOnlyTheCurrentOneIsKept) {
  test::TempDir folder;
  const QString root = QString::fromStdString((folder.path() / "icons").string());
  SymbolicTrayIcons icons(root, true);
  const QByteArray idle = SymbolicTrayIcons::svg(NJGlyph::headphones, NJGlyphState::idle, std::nullopt);
  const QByteArray active = SymbolicTrayIcons::svg(NJGlyph::headphones, NJGlyphState::active, std::nullopt);
  const auto first = icons.put("aa", idle);
  ASSERT_TRUE(first);
  EXPECT_TRUE(first->endsWith("-symbolic"));
  EXPECT_EQ(icons.put("aa", idle), first);
  const auto other = icons.put("bb", idle);
  ASSERT_TRUE(other);
  EXPECT_NE(*other, *first) << "two items never share a file";
  const auto second = icons.put("aa", active);
  ASSERT_TRUE(second);
  EXPECT_NE(*second, *first);
  for (const QString& sub : {QString(), QStringLiteral("/hicolor/scalable/status")}) {
    EXPECT_FALSE(QFile::exists(root + sub + "/" + *first + ".svg")) << sub.toStdString();
    EXPECT_TRUE(QFile::exists(root + sub + "/" + *second + ".svg")) << sub.toStdString();
    EXPECT_TRUE(QFile::exists(root + sub + "/" + *other + ".svg")) << sub.toStdString();
  }
  // A folder left by an earlier run is emptied; the folder goes with the program.
  {
    SymbolicTrayIcons again(root, false);
    EXPECT_FALSE(QFile::exists(root + "/" + *second + ".svg"));
    const auto plain = again.put("aa", idle);
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->endsWith("-symbolic")) << "hosts that do not recolour get the icon's own grey";
  }
  EXPECT_FALSE(QDir(root).exists());
}

}  // namespace
}  // namespace wh::tray
