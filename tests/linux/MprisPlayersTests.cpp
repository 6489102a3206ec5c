// The music players over MPRIS on a private session bus, with stand-in players that record the
// calls they receive, answer errors, or never answer.
#include <gtest/gtest.h>

#include <fstream>

#include "QtLoop.h"
#include "doubles/MemoryApps.h"
#include "platform/linux/mediakeys/MprisPlayers.h"
#include "platform/linux/runtime/QtRuntime.h"
#include "support/CapturedLog.h"
#include "support/DBusDaemon.h"
#include "support/MprisStandIn.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

using Kind = PlayerCommand::Kind;
using Calls = std::vector<std::string>;

TEST(MprisPlayers, CommandsReachTheRightPlayerInOrderAndAnErrorOrASilentPlayerHoldsNothingUp) {
  test::qtApplication();
  test::DBusDaemon bus;
  if (!bus.available()) GTEST_SKIP() << bus.whyNot();
  test::CapturedLog log;
  test::TempDir config("mpris-config");
  std::ofstream(config.path() / "mimeapps.list") << "[Default Applications]\naudio/mpeg=vlc.desktop;org.gnome.Rhythmbox3.desktop;\n";
  MemoryDesktopEntries desktop;
  desktop.set({{"org.gnome.Rhythmbox3", "rhythmbox %U", "", false, false}, {"spotify", "spotify %U", "", false, false}});
  MprisPlayers control(desktop, {config.path()}, {}, QDBusConnection::connectToBus(QString::fromStdString(bus.address()), "mpris-test"), 500);
  QtRuntime runtime;
  Players players(runtime, control);
  EXPECT_EQ(control.identities().appID(ScriptablePlayer::music), "org.gnome.Rhythmbox3") << "vlc is not installed";

  test::MprisStandIn music(bus.address(), "rhythmbox", "org.gnome.Rhythmbox3");
  auto spotify = std::make_unique<test::MprisStandIn>(bus.address(), "spotify", "spotify");
  ASSERT_TRUE(music.ready() && spotify->ready());
  ASSERT_TRUE(test::spinUntil([&] { return control.isRunning(ScriptablePlayer::music) && control.isRunning(ScriptablePlayer::spotify); }));

  const std::tuple<ScriptablePlayer, PlayerCommand> sent[] = {
      {ScriptablePlayer::spotify, PlayerCommand::of(Kind::playPause)}, {ScriptablePlayer::music, PlayerCommand::of(Kind::next)},
      {ScriptablePlayer::spotify, PlayerCommand::seek(5)},             {ScriptablePlayer::music, PlayerCommand::seek(5)},
      {ScriptablePlayer::music, PlayerCommand::of(Kind::rewind)},      {ScriptablePlayer::spotify, PlayerCommand::of(Kind::resume)},
      {ScriptablePlayer::spotify, PlayerCommand::of(Kind::previous)},  {ScriptablePlayer::music, PlayerCommand::of(Kind::play)},
  };
  for (const auto& [player, command] : sent) players.send(command, player);
  EXPECT_TRUE(test::spinUntil([&] { return music.calls().size() == 3 && spotify->calls().size() == 3; }));
  EXPECT_EQ(music.calls(), (Calls{"Next", "Seek -10000000", "Play"}));
  EXPECT_EQ(spotify->calls(), (Calls{"PlayPause", "Seek 5000000", "Previous"}));

  // A Spotify that answers with errors, then one that never answers and leaves while asked.
  spotify.reset();
  for (const char* mode : {"error", "silent"}) {
    test::MprisStandIn stubborn(bus.address(), "spotify", "spotify", mode);
    ASSERT_TRUE(test::spinUntil([&] { return control.isRunning(ScriptablePlayer::spotify); }));
    players.send(PlayerCommand::of(Kind::next), ScriptablePlayer::spotify);
    players.send(PlayerCommand::of(Kind::previous), ScriptablePlayer::music);
    ASSERT_TRUE(test::spinUntil([&] { return !stubborn.calls().empty(); }));
  }
  EXPECT_TRUE(test::spinUntil([&] { return music.calls().size() == 5; })) << "the queue moved on";
  EXPECT_TRUE(test::spinUntil([&] { return std::count(log->lines.begin(), log->lines.end(), "player command failed (spotify): the player refused") == 1; }));
  EXPECT_TRUE(test::spinUntil([&] { return !control.isRunning(ScriptablePlayer::spotify); })) << "its name went with it";
}

}  // namespace
}  // namespace wh::platform
