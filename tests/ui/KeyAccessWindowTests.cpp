// The key access panel on an X display: the steps of this system with their commands, and
// "Check Again" saying what it found each time.
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>

#include "support/ChildProcess.h"
#include "support/RigRequired.h"
#include "support/TempDir.h"
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

// Where the system has the administrator's dialog, the panel offers it, with what it grants, and
// runs the first step's commands through it only on a click; the check follows its end.
TEST(KeyAccessWindowTest, TheAdministratorsDialogRunsTheFirstStepOnlyWhenAsked) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  TempDir bin;
  const auto asked = bin.path() / "asked";
  // A stand-in pkexec that records what it was asked to run, and succeeds.
  writeFile(bin.path() / "pkexec", "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + asked.string() + "'\n");
  std::filesystem::permissions(bin.path() / "pkexec", std::filesystem::perms::owner_all);
  const QByteArray path = qgetenv("PATH");
  qputenv("PATH", QByteArray::fromStdString(bin.path().string()) + ":" + path);
  int checks = 0;
  panels::KeyAccessWindow panel(texts::keyAccessSteps({"/usr/share/wrenhaven/udev/70-wrenhaven-input.rules", false, "ada"}),
                                [&] { return ++checks, texts::InputAccess{}; });
  panel.show();
  qputenv("PATH", path);
  std::string shown;
  for (auto* label : panel.window()->findChildren<QLabel*>()) shown += label->text().toStdString() + "|";
  EXPECT_NE(shown.find(texts::kKeyAccessAdminGrant), std::string::npos) << "what it grants is said beside it";
  EXPECT_FALSE(std::filesystem::exists(asked)) << "nothing runs before the click";
  ASSERT_TRUE(press(*panel.window(), texts::kKeyAccessAdminButton));
  ASSERT_TRUE(eventually([&] {
    QApplication::processEvents();
    return checks == 2;
  })) << "checked again once the dialog ended";
  EXPECT_EQ(readFile(asked), "/bin/sh\n-c\ncp /usr/share/wrenhaven/udev/70-wrenhaven-input.rules /etc/udev/rules.d/ && "
                             "udevadm control --reload && udevadm trigger --subsystem-match=input --subsystem-match=misc\n");
}

}  // namespace
}  // namespace wh::test
