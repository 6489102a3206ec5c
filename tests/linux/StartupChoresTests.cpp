// Starting at login through the autostart folder, and the settings program started, ended and
// started again through its bus name.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <QDBusConnection>

#include "QtLoop.h"
#include "platform/linux/app/SettingsProcess.h"
#include "platform/linux/app/XdgAutostart.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "support/ChildProcess.h"
#include "support/DBusDaemon.h"
#include "support/RigRequired.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

TEST(XdgAutostart, TheEntryIsTheInstalledOneOrOneThatStartsThisProgramAndSwitchedOffEntriesCountAsOff) {
  test::TempDir home("autostart");
  const auto entry = home.path() / "autostart" / "wrenhaven.desktop";
  const auto installed = home.path() / "installed.desktop";
  XdgAutostart withoutInstall(entry, installed, "/opt/my apps/$weird\\wrenhaven");
  EXPECT_FALSE(withoutInstall.enabled());
  ASSERT_EQ(withoutInstall.setEnabled(true), "");
  EXPECT_TRUE(withoutInstall.enabled());
  EXPECT_NE(test::readFile(entry).find("Exec=\"/opt/my apps/\\\\$weird\\\\\\\\wrenhaven\"\n"), std::string::npos)
      << test::readFile(entry);
  if (::access("/usr/bin/desktop-file-validate", X_OK) == 0) {
    const auto check = test::runCommand({"/usr/bin/desktop-file-validate", entry.string()});
    EXPECT_EQ(check.status, 0) << check.output;
  }
  std::ofstream(installed) << "[Desktop Entry]\nType=Application\nName=Installed\nExec=wrenhaven\n";
  XdgAutostart withInstall(entry, installed, "/usr/bin/wrenhaven");
  ASSERT_EQ(withInstall.setEnabled(true), "");
  EXPECT_EQ(test::readFile(entry), test::readFile(installed));
  for (const char* off : {"Hidden=true", "X-GNOME-Autostart-enabled=false"}) {
    std::ofstream(entry) << "[Desktop Entry]\nExec=wrenhaven\n" << off << "\n";
    EXPECT_FALSE(withInstall.enabled()) << off;
  }
  ASSERT_EQ(withInstall.setEnabled(false), "");
  EXPECT_FALSE(std::filesystem::exists(entry));
  EXPECT_EQ(withInstall.setEnabled(false), "") << "already off";

  // A folder that cannot be made: the error comes back and nothing else happens.
  std::ofstream(home.path() / "blocked") << "a file where the folder should be";
  XdgAutostart blocked(home.path() / "blocked" / "autostart" / "w.desktop", installed, "/usr/bin/wrenhaven");
  EXPECT_NE(blocked.setEnabled(true), "");
  EXPECT_FALSE(blocked.enabled());
}

TEST(SettingsProcess, ARunningCopyIsEndedThroughItsBusNameBeforeANewOneStartsInTheModeAskedFor) {
  test::qtApplication();
  test::DBusDaemon bus;
  REQUIRE_RIG(bus.available(), bus.whyNot());
  test::TempDir folder("settings-program");
  const auto log = folder.path() / "starts";
  ::setenv("STAND_IN_LOG", log.c_str(), 1);
  ::setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
  QtRuntime runtime;
  const auto connection = QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "settings-process");
  SettingsProcess program(runtime.main(), WRENHAVEN_SETTINGS_STAND_IN, connection);
  const auto running = [&] { return bus.hasOwner("com.quintelbarrows.wrenhaven.settings"); };

  bool ended = false;
  program.endRunning([&] { ended = true; });
  EXPECT_TRUE(test::spinUntil([&] { return ended; })) << "nothing runs: it goes on at once";
  for (bool onboarding : {true, false}) {
    ended = false;
    program.endRunning([&] { ended = true; });
    ASSERT_TRUE(test::spinUntil([&] { return ended; }));
    EXPECT_FALSE(running()) << "the earlier copy has gone before the next starts";
    ASSERT_EQ(program.start(onboarding), "");
    ASSERT_TRUE(test::spinUntil(running));
  }
  EXPECT_EQ(test::readFile(log), "started --onboarding\nstarted\n");
  program.endRunning([] {});
  EXPECT_TRUE(test::spinUntil([&] { return !running(); }));

  SettingsProcess missing(runtime.main(), (folder.path() / "absent").string(), connection);
  EXPECT_FALSE(missing.exists());
  EXPECT_NE(missing.start(false), "");
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  ::unsetenv("STAND_IN_LOG");
}

}  // namespace
}  // namespace wh::platform
