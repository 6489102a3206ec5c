// Where the panel opens, on an X display whose work area leaves out a bar (as a desktop's panel
// does through _NET_WORKAREA): from the point where the tray says it was clicked, never over the
// bar, always inside the screen.
#include <QApplication>
#include <QScreen>
#include <QTest>

#include "support/RigRequired.h"
#include "support/WidgetsApplication.h"
#include "ui/kit/NJPanel.h"

namespace wh::test {
namespace {

constexpr int kBar = 32;

enum class Bar { top, bottom, left, right, unknown };

struct Placement {
  const char* name;
  Bar bar;
  double along;  // where along the bar the icon is, from its start (0) to its
                 // end (1)
  int across;    // how far into the bar the host's point is, from the screen's
                 // edge
};

void PrintTo(const Placement& placement, std::ostream* out) { *out << placement.name; }

class TrayPlacementTest : public testing::TestWithParam<Placement> {
 protected:
  void SetUp() override { REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot()); }
  void TearDown() override { setWorkArea(screen()); }

  static QRect screen() { return QGuiApplication::primaryScreen()->geometry(); }
  static void setWorkArea(const QRect& area) {
    const std::string value = std::to_string(area.x()) + ", " + std::to_string(area.y()) + ", " +
                              std::to_string(area.width()) + ", " + std::to_string(area.height());
    runCommand({"xprop", "-root", "-f", "_NET_WORKAREA", "32c", "-set", "_NET_WORKAREA", value},
               {{"DISPLAY", widgetsDisplay().display()}});
    QTRY_COMPARE_WITH_TIMEOUT(QGuiApplication::primaryScreen()->availableGeometry(), area, 5000);
  }
};

TEST_P(TrayPlacementTest, ThePanelOpensBesideTheBarFromTheHostsPoint) {
  const Placement& p = GetParam();
  const QRect s = screen();
  const int x = s.left() + static_cast<int>(p.along * (s.width() - 1));
  const int y = s.top() + static_cast<int>(p.along * (s.height() - 1));
  QRect workArea = s;
  QPoint clicked;
  switch (p.bar) {
    case Bar::top:
      workArea.setTop(s.top() + kBar), clicked = {x, s.top() + p.across};
      break;
    case Bar::bottom:
      workArea.setBottom(s.bottom() - kBar), clicked = {x, s.bottom() - p.across};
      break;
    case Bar::left:
      workArea.setLeft(s.left() + kBar), clicked = {s.left() + p.across, y};
      break;
    case Bar::right:
      workArea.setRight(s.right() - kBar), clicked = {s.right() - p.across, y};
      break;
    case Bar::unknown:
      clicked = {x, s.top() + p.across};
      break;
  }
  // Where the bar is, whether the work area knows it or not.
  QRect bar = s;
  bar.setBottom(s.top() + kBar - 1);
  if (p.bar == Bar::bottom) bar = QRect(s.left(), s.bottom() - kBar + 1, s.width(), kBar);
  if (p.bar == Bar::left) bar = QRect(s.left(), s.top(), kBar, s.height());
  if (p.bar == Bar::right) bar = QRect(s.right() - kBar + 1, s.top(), kBar, s.height());
  setWorkArea(workArea);
  nj::NJPanel panel;
  panel.setFixedHeight(300);
  panel.placeNear(QRect(), clicked);
  const QRect placed(panel.pos(), panel.size());
  const std::string where =
      std::string(p.name) + ": at " + std::to_string(placed.x()) + "," + std::to_string(placed.y());
  EXPECT_TRUE(s.contains(placed)) << where;
  EXPECT_FALSE(placed.intersects(bar)) << where;
  // Beside the icon: no farther from the host's point than the bar is thick and the margins.
  const int dx = std::max({placed.left() - clicked.x(), 0, clicked.x() - placed.right()});
  const int dy = std::max({placed.top() - clicked.y(), 0, clicked.y() - placed.bottom()});
  EXPECT_LE(std::max(dx, dy), kBar + 16) << where;
}

INSTANTIATE_TEST_SUITE_P(
    Bars, TrayPlacementTest,
    testing::Values(Placement{"top bar, icon at the right end", Bar::top, 0.98, 24},
                    Placement{"top bar, icon in the middle", Bar::top, 0.5, 9},
                    Placement{"bottom bar", Bar::bottom, 0.9, 14}, Placement{"left bar", Bar::left, 0.5, 10},
                    Placement{"right bar, icon at the far end", Bar::right, 1.0, 10},
                    Placement{"a top bar the work area does not leave out", Bar::unknown, 0.6, kBar / 2}),
    [](const auto& test) {
      std::string name = test.param.name;
      for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
      return name;
    });

}  // namespace
}  // namespace wh::test
