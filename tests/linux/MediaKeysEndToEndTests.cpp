// The real agent under Xvfb with root-window grabs and stand-in MPRIS players: keys follow the sound,
// a held next seeks, a player that errs or never answers holds nothing up, idle play asks.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "QtLoop.h"
#include "core/texts/PlatformTexts.h"
#include "platform/linux/app/SystemInfo.h"
#include "platform/linux/mediakeys/X11KeyGrab.h"
#include "support/AgentHome.h"
#include "support/DBusDaemon.h"
#include "support/MprisStandIn.h"
#include "support/PulseRig.h"
#include "support/RigRequired.h"
#include "support/XvfbDisplay.h"

namespace wh {
namespace {

using namespace std::chrono_literals;

TEST(MediaKeysEndToEnd, KeysGoToThePlayerThatPlayedLastAHeldNextSeeksAndPlayWithNothingPlayingAsks) {
  test::PulseRig pulse;
  test::DBusDaemon bus;
  test::XvfbDisplay display;
  REQUIRE_RIG(pulse.available() && bus.available() && display.available, "no sound server, bus or Xvfb with xdotool");
  test::AgentHome home;
  home.writeSettings({{"mediaKeys.enabled", true}});
  for (const std::string id : {"spotify", "org.gnome.Rhythmbox3"}) {
    test::writeFile(home.path() / "share" / "applications" / (id + ".desktop"), "[Desktop Entry]\nType=Application\nExec=false\n");
  }
  std::ofstream(home.path() / "config" / "mimeapps.list") << "[Default Applications]\naudio/mpeg=org.gnome.Rhythmbox3.desktop;\n";
  auto environment = home.environment(pulse.clientEnvironment());
  environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";
  environment["DISPLAY"] = display.name;
  environment["XDG_DATA_DIRS"] = (home.path() / "share").string();  // nothing of the machine's own
  // libxkbcommon (under Qt's X11 platform) strndups unterminated names, which strict checks reject.
  environment["ASAN_OPTIONS"] = std::string(std::getenv("ASAN_OPTIONS") ? std::getenv("ASAN_OPTIONS") : "") + ":strict_string_checks=0";
  test::qtApplication();
  auto held = platform::X11KeyGrab::start({[](const MediaKeyEvent&) { return true; }, {}}, display.name.c_str());
  std::string failure;
  auto agent = home.launch(environment, failure);
  ASSERT_TRUE(held && agent) << failure;
  ASSERT_TRUE(test::eventually([&] { return home.log().find("media key XF86AudioNext is held by another program") != std::string::npos; }));
  held.reset();  // the agent takes the keys once they are free
  auto target = [&] { return home.status("agent.mediaKeysTarget").dump(); };
  ASSERT_TRUE(test::eventually([&] { return home.status("agent.mediaKeys") == "running"; })) << home.log();

  auto spotify = test::mprisStandIn(bus.address(), "spotify", "spotify"), music = test::mprisStandIn(bus.address(), "rhythmbox", "org.gnome.Rhythmbox3");
  ASSERT_TRUE(spotify && music);
  auto sound = pulse.play("application.id=org.gnome.Rhythmbox3");
  ASSERT_TRUE(test::eventually([&] { return target() == "\"org.gnome.Rhythmbox3\""; })) << home.log();
  display.xdotool("key", "XF86AudioPlay");
  display.xdotool("key", "XF86AudioNext");
  EXPECT_TRUE(test::eventually([&] { return music->output() == "ready\nPlayPause\nNext\n"; })) << home.log();

  sound = pulse.play("application.id=spotify");
  ASSERT_TRUE(test::eventually([&] { return target() == "\"spotify\""; })) << home.log();
  display.xdotool("keydown", "XF86AudioNext");
  std::this_thread::sleep_for(1500ms);  // the server repeats the held key
  display.xdotool("keyup", "XF86AudioNext");
  // Keys are handled and players called in order: once the play key that follows has reached the
  // player, whatever the release sent has too.
  display.xdotool("key", "XF86AudioPlay");
  ASSERT_TRUE(test::eventually([&] { return spotify->output().ends_with("PlayPause\n"); })) << spotify->output();
  const std::string seek = "Seek 5000000\n", calls = spotify->output();
  std::size_t seeks = 0;
  for (auto at = calls.find(seek); at != std::string::npos; at = calls.find(seek, at + 1)) ++seeks;
  EXPECT_TRUE(seeks >= 2 && seeks <= 5) << "one seek at most every 0.25 s from 0.35 s on, here " << seeks;
  EXPECT_EQ(calls.size(), std::string("ready\nPlayPause\n").size() + seeks * seek.size())
      << "nothing else, no skip on release: " << calls;

  // A Spotify that answers with errors, then one that never answers and leaves while it is asked.
  for (const char* mode : {"error", "silent"}) {
    spotify = test::mprisStandIn(bus.address(), "spotify", "spotify", mode);
    ASSERT_TRUE(spotify && test::eventually([&] { return display.xdotool("key", "XF86AudioNext"), spotify->output() != "ready\n"; }));
  }
  spotify.reset();
  sound = pulse.play("application.id=org.gnome.Rhythmbox3");
  ASSERT_TRUE(test::eventually([&] { return target() == "\"org.gnome.Rhythmbox3\""; })) << home.log();
  display.xdotool("key", "XF86AudioPrev");
  EXPECT_TRUE(test::eventually([&] { return music->output() == "ready\nPlayPause\nNext\nPrevious\n"; })) << "the queue moved on";
  EXPECT_NE(home.log().find("player command failed (spotify): the player refused"), std::string::npos);

  // The sound stops first and the player quits after: the target still moves when the player goes.
  sound.reset();
  ASSERT_TRUE(test::eventually([&] {
    const auto apps = home.status("agent.volumeApps");
    return apps.is_array() && std::none_of(apps.begin(), apps.end(), [](const auto& app) { return app.value("playing", false); });
  })) << home.log();
  EXPECT_EQ(target(), "\"org.gnome.Rhythmbox3\"") << "the player still runs";
  music.reset();
  ASSERT_TRUE(test::eventually([&] { return target() == "\"\""; })) << home.log();
  display.xdotool("key", "XF86AudioPlay");
  EXPECT_TRUE(test::eventually([&] {  // the idle-play panel is on the screen
    return test::runCommand({"xdotool", "search", "--onlyvisible", "--name", "Nothing is playing"}, {{"DISPLAY", display.name}}).status == 0;
  })) << home.log();
}

// A Wayland session whose X11 display is XWayland: its grabs miss keys typed into Wayland windows,
// so they are not key access, and the agent and its diagnostics say so.
TEST(MediaKeysEndToEnd, OnWaylandXWaylandGrabsAreNoKeyAccessAndTheDiagnosticsSaySo) {
  test::DBusDaemon bus;
  test::XvfbDisplay display;
  REQUIRE_RIG(bus.available() && display.available, "no bus or Xvfb with xdotool");
  test::AgentHome home;
  home.writeSettings({{"mediaKeys.enabled", true}});
  auto environment = home.environment();
  environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address();
  environment["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=/nonexistent";
  environment["DISPLAY"] = display.name;
  environment["WAYLAND_DISPLAY"] = "wayland-wrenhaven-test";  // named only: the agent draws on X11
  environment["QT_QPA_PLATFORM"] = "xcb";
  environment["ASAN_OPTIONS"] = std::string(std::getenv("ASAN_OPTIONS") ? std::getenv("ASAN_OPTIONS") : "") + ":strict_string_checks=0";
  const bool devices = platform::inputAccessGranted();  // the kernel's devices work on any session
  const auto diagnose = test::runCommand({WRENHAVEN_AGENT_PATH, "--diagnose"}, environment);
  EXPECT_NE(diagnose.output.find(texts::kHotkeysXWaylandOnly), std::string::npos) << diagnose.output;
  EXPECT_EQ(diagnose.output.find(texts::kMediaKeysNotOnXWayland) != std::string::npos, !devices) << diagnose.output;

  std::string failure;
  auto agent = home.launch(environment, failure);
  ASSERT_TRUE(agent) << failure;
  const std::string expected = devices ? "running" : "needsAccessibility";
  EXPECT_TRUE(test::eventually([&] { return home.status("agent.mediaKeys") == expected; })) << home.log();
  for (const char* said : {texts::kHotkeysXWaylandOnly, texts::kMediaKeysNotOnXWayland}) {
    EXPECT_NE(home.log().find(said), std::string::npos) << said << "\n" << home.log();
  }
}

}  // namespace
}  // namespace wh
