// The key access panel on an X display: the steps of this system with their commands, and
// "Check Again" saying what it found each time.
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>

#include "support/RigRequired.h"
#include "support/WidgetsApplication.h"
#include "ui/kit/NJFonts.h"
#include "ui/panels/KeyAccessWindow.h"

namespace wh::test {
namespace {

TEST(KeyAccessWindowTest, ShowsTheStepsAndEachCheckSaysWhatItFound) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  nj::NJFonts::registerFonts();
  texts::InputAccess found;
  int checks = 0;
  panels::KeyAccessWindow panel(texts::keyAccessSteps({"/usr/share/wrenhaven/udev/70-wrenhaven-input.rules", false, "ada"}),
                                [&] { return ++checks, found; });
  int told = 0;
  panel.checked = [&](const texts::InputAccess& access) { told += access.trusted() ? 10 : 1; };
  panel.show();
  const auto finding = [&] { return panel.window()->findChild<QLabel*>("keyAccessFinding")->text().toStdString(); };
  EXPECT_EQ(checks, 1) << "opening checks";
  EXPECT_NE(finding().find("Still no key access: no keyboard with media keys can be read, and /dev/uinput cannot be written."),
            std::string::npos) << finding();
  saveInBothThemes(*panel.window(), "key-access");

  ASSERT_TRUE(press(*panel.window(), "Copy"));
  EXPECT_TRUE(QGuiApplication::clipboard()->text().startsWith("sudo cp /usr/share/wrenhaven/udev/70-wrenhaven-input.rules "))
      << "the first command, ready to paste";

  found = {true, true};  // the rule was applied meanwhile
  ASSERT_TRUE(press(*panel.window(), "Check Again"));
  EXPECT_EQ(checks, 2);
  EXPECT_NE(finding().find("Key access is allowed"), std::string::npos) << finding();
  EXPECT_EQ(told, 11) << "the agent hears of both checks";
  panel.show();  // opened again: raised and checked, not built twice
  EXPECT_EQ(panel.window()->findChildren<QLabel*>("keyAccessFinding").size(), 1);
  EXPECT_EQ(checks, 3);
}

}  // namespace
}  // namespace wh::test
