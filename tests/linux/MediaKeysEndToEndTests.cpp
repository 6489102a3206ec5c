// The real agent under Xvfb taking the media keys through root-window grabs: the application
// that plays sound becomes the target, keys reach the right stand-in player over MPRIS, a held
// next seeks, and play with nothing playing asks what to do.
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "support/AgentHome.h"
#include "support/DBusDaemon.h"
#include "support/MprisStandIn.h"
#include "support/PulseRig.h"
#include "support/XvfbDisplay.h"

namespace wh {
namespace {

using namespace std::chrono_literals;
using Calls = std::vector<std::string>;
constexpr xcb_keysym_t playKey = 0x1008FF14, nextKey = 0x1008FF17;

void writeFile(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

TEST(MediaKeysEndToEnd, KeysGoToThePlayerThatPlayedLastAHeldNextSeeksAndPlayWithNothingPlayingAsks) {
  test::PulseRig pulse;
  test::DBusDaemon bus;
  test::XvfbDisplay display;
  if (!pulse.available()) GTEST_SKIP() << pulse.whyNot();
  if (!bus.available()) GTEST_SKIP() << bus.whyNot();
  if (!display.available()) GTEST_SKIP() << display.whyNot();
  test::AgentHome home;
  home.writeSettings({{"mediaKeys.enabled", true}});
  const auto applications = home.path() / ".local" / "share" / "applications";
  for (const char* id : {"spotify", "org.gnome.Rhythmbox3"}) {
    writeFile(applications / (std::string(id) + ".desktop"), "[Desktop Entry]\nType=Application\nName=" + std::string(id) + "\nExec=/bin/false\n");
  }
  writeFile(home.path() / "config" / "mimeapps.list", "[Default Applications]\naudio/mpeg=org.gnome.Rhythmbox3.desktop;\n");
  auto environment = home.environment(pulse.clientEnvironment());
  environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";
  environment["DISPLAY"] = display.name();
  environment["XDG_DATA_DIRS"] = home.path().string();  // nothing of the machine's own
  // Qt's X11 platform has libxkbcommon strndup key names that are not terminated, which POSIX
  // allows and the strict string checks reject.
  const char* sanitizer = std::getenv("ASAN_OPTIONS");
  environment["ASAN_OPTIONS"] = std::string(sanitizer ? sanitizer : "") + ":strict_string_checks=0";
  std::string failure;
  auto agent = home.launch(environment, failure);
  ASSERT_TRUE(agent) << failure;
  auto status = [&](const char* key) { return home.status(key).is_string() ? home.status(key).get<std::string>() : ""; };
  ASSERT_TRUE(test::eventually([&] { return status("agent.mediaKeys") == "running"; })) << home.log();

  auto spotify = std::make_unique<test::MprisStandIn>(bus.address(), "spotify", "spotify");
  auto music = std::make_unique<test::MprisStandIn>(bus.address(), "rhythmbox", "org.gnome.Rhythmbox3");
  ASSERT_TRUE(spotify->ready() && music->ready());
  auto musicSound = pulse.play("application.id=org.gnome.Rhythmbox3");
  ASSERT_TRUE(test::eventually([&] { return status("agent.mediaKeysTarget") == "org.gnome.Rhythmbox3"; })) << home.log();
  for (auto key : {playKey, nextKey}) {
    display.key(key, true);
    display.key(key, false);
  }
  EXPECT_TRUE(test::eventually([&] { return music->calls() == Calls{"PlayPause", "Next"}; })) << home.log();

  musicSound.reset();
  auto spotifySound = pulse.play("application.id=spotify");
  ASSERT_TRUE(test::eventually([&] { return status("agent.mediaKeysTarget") == "spotify"; })) << home.log();
  display.key(nextKey, true);
  std::this_thread::sleep_for(1500ms);  // the server repeats the held key
  display.key(nextKey, false);
  std::this_thread::sleep_for(500ms);
  const auto seeks = spotify->calls();
  EXPECT_GE(seeks.size(), 2u) << home.log();
  EXPECT_LE(seeks.size(), 5u) << "one seek at most every 0.25 s, from 0.35 s on";
  EXPECT_EQ(std::count(seeks.begin(), seeks.end(), "Seek 5000000"), static_cast<long>(seeks.size())) << "no skip on release";

  spotifySound.reset();
  spotify.reset();
  music.reset();
  ASSERT_TRUE(test::eventually([&] { return status("agent.mediaKeysTarget").empty(); })) << home.log();
  display.key(playKey, true);
  display.key(playKey, false);
  EXPECT_TRUE(test::eventually([&] { return home.log().find("idle play panel (log only): Nothing is playing") != std::string::npos; }))
      << home.log();
}

}  // namespace
}  // namespace wh
