// The players over MPRIS on a private session bus with stand-in players, and the default music
// player followed through mimeapps.list as desktops write it: replaced whole, or written in place.
#include <gtest/gtest.h>

#include <QDBusConnection>

#include "QtLoop.h"
#include "doubles/MemoryApps.h"
#include "platform/linux/mediakeys/MprisPlayers.h"
#include "support/DBusDaemon.h"
#include "support/MprisStandIn.h"
#include "support/RigRequired.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

TEST(MprisPlayers, TheChangeHandlerHearsPlayersComeAndGoAndTheDefaultMusicPlayerChange) {
  test::qtApplication();
  test::DBusDaemon bus;
  REQUIRE_RIG(bus.available(), bus.whyNot());
  test::TempDir home;
  const auto config = home.path() / "config", applications = home.path() / "applications";
  const auto defaults = [&](const std::string& id) { return "[Default Applications]\naudio/mpeg=" + id + ".desktop;\n"; };
  test::writeFile(config / "mimeapps.list", defaults("org.gnome.Rhythmbox3"));
  MemoryDesktopEntries desktop;
  std::vector<DesktopEntry> installed;
  for (const char* id : {"org.gnome.Rhythmbox3", "org.gnome.Lollypop", "spotify"}) {
    installed.emplace_back();
    installed.back().id = id;
  }
  desktop.set(installed);
  {
    MprisPlayers players(desktop, {config}, {applications},
                         QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "mpris-players-test"));
    int changes = 0;
    players.setChangeHandler([&] { ++changes; });
    EXPECT_EQ(players.identities().appID(ScriptablePlayer::music), "org.gnome.Rhythmbox3");

    // A player whose bus name says nothing, known by its DesktopEntry only once it has answered.
    auto music = test::mprisStandIn(bus.address(), "rhythmbox_7", "org.gnome.Rhythmbox3");
    ASSERT_TRUE(music);
    EXPECT_TRUE(test::spinUntil([&] { return players.isRunning(ScriptablePlayer::music); }));
    EXPECT_GE(changes, 1) << "told when it started";
    EXPECT_FALSE(players.isRunning(ScriptablePlayer::spotify));
    changes = 0;
    music.reset();
    EXPECT_TRUE(test::spinUntil([&] { return changes > 0; })) << "told when it quit";
    EXPECT_FALSE(players.isRunning(ScriptablePlayer::music));

    // Another default player, saved the way desktops save: a new file put in the old one's place.
    changes = 0;
    test::writeFile(config / "mimeapps.list.new", defaults("org.gnome.Lollypop"));
    std::filesystem::rename(config / "mimeapps.list.new", config / "mimeapps.list");
    EXPECT_TRUE(test::spinUntil([&] { return players.identities().appID(ScriptablePlayer::music) == "org.gnome.Lollypop"; }));
    EXPECT_EQ(changes, 1);
    // Then written in place, after the watch on the replaced file had to be made again.
    test::writeFile(config / "mimeapps.list", defaults("org.gnome.Rhythmbox3"));
    EXPECT_TRUE(test::spinUntil([&] { return players.identities().appID(ScriptablePlayer::music) == "org.gnome.Rhythmbox3"; }));
    // A default that is not installed leaves Music to its own ids.
    test::writeFile(config / "mimeapps.list", defaults("org.example.NotInstalled"));
    EXPECT_TRUE(test::spinUntil([&] { return players.identities().music == PlayerIdentities().music; }));
    // A file removed, then made anew, is seen in its folder.
    std::filesystem::remove(config / "mimeapps.list");
    test::writeFile(config / "mimeapps.list", defaults("org.gnome.Lollypop"));
    EXPECT_TRUE(test::spinUntil([&] { return players.identities().appID(ScriptablePlayer::music) == "org.gnome.Lollypop"; }));
  }
  QDBusConnection::disconnectFromBus("mpris-players-test");
}

}  // namespace
}  // namespace wh::platform
