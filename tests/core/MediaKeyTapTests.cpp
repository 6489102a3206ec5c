// The media key tap switched by its settings and by access, carrying out the router's decisions;
// and idle play's choices.
#include <gtest/gtest.h>

#include "AudioWorld.h"
#include "core/mediakeys/MediaKeyTap.h"
#include "doubles/FakeMediaKeys.h"
#include "doubles/MemoryStore.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

using Key = MediaKeyEvent::Key;
using State = MediaKeyTap::State;

struct MediaKeysWorld : test::AudioWorld {
  MemoryStore store;
  NotificationCenter notifications;
  Settings settings{store, notifications, true, nullptr};
  FakePlayers control;
  FakeKeySource source;
  AudioProcessMonitor monitor{rt, hw, grouping};
  std::set<std::string> regular;
  MediaKeyTap tap{rt, settings, notifications, {source, control, monitor, [this] { return regular; }}};

  void set(const char* key, bool value) {
    store.set(key, StoreValue::boolean(value));
    settings.changed(key);
  }
  bool press(Key key, bool down, bool repeat = false) { return source.handler.decide({key, down, repeat}); }
};

TEST(MediaKeyTap, FollowsSettingsAndAccessAndSendsTheKeysToTheAppThatPlayedLast) {
  test::CapturedLog log;
  MediaKeysWorld world;
  int changes = 0, idlePlays = 0;
  world.tap.onChange = [&] { ++changes; };
  world.tap.onIdlePlay = [&] { ++idlePlays; };
  world.tap.start();
  EXPECT_EQ(world.tap.state(), State::off);
  EXPECT_EQ(world.rt.nextDueIn(), -1) << "no health timer while off";

  world.set(Keys::mediaKeysEnabled, true);
  EXPECT_EQ(world.tap.state(), State::needsAccessibility);
  EXPECT_FALSE(world.source.capturing);
  world.source.granted = true;
  world.rt.advance(MediaKeyTap::healthWhileMissing);
  EXPECT_EQ(world.tap.state(), State::running) << "the one-second tick sees the access granted";
  EXPECT_EQ(changes, 2);

  // Play with nothing known asks for idle play, once, after the key's own handling.
  EXPECT_TRUE(world.press(Key::play, true));
  EXPECT_EQ(idlePlays, 0);
  world.rt.runReady();
  EXPECT_TRUE(world.press(Key::play, false));
  world.rt.runReady();
  EXPECT_EQ(idlePlays, 1);

  // Spotify starts playing: next tapped skips on release; a browser playing later gets the keys.
  world.runApp("spotify", 40);
  world.hw.processList.push_back({7, 40, "spotify", false, true});
  world.monitor.refresh();
  world.rt.advance(1);
  world.control.running = {ScriptablePlayer::spotify};
  EXPECT_EQ(world.tap.currentTarget(), "spotify");
  EXPECT_TRUE(world.press(Key::next, true));
  EXPECT_TRUE(world.press(Key::next, false));
  world.runApp("firefox", 41);
  world.hw.processList.push_back({8, 41, "firefox", false, true});
  world.monitor.refresh();
  world.rt.advance(1);
  EXPECT_FALSE(world.press(Key::play, true)) << "passed to the browser";
  world.rt.drainSerialQueues();
  ASSERT_EQ(world.control.performed.size(), 1u);
  EXPECT_EQ(world.control.performed[0].second.method, "Next");

  world.source.handler.disabled(MediaKeySource::Disabled::byTimeout);
  EXPECT_EQ(log->lines.back(), "media key tap disabled by the system (4294967294); re-enabling");
  world.set(Keys::mediaKeysPaused, true);
  EXPECT_EQ(world.tap.state(), State::off);
  EXPECT_FALSE(world.source.capturing);
  EXPECT_EQ(std::count(log->lines.begin(), log->lines.end(), "media key tap running"), 1);
}

TEST(IdlePlay, EachSettingStartsAPlayerOrAsksAndASecondPressTakesTheSuggestion) {
  struct Case {
    const char* idlePlay;  // as stored; unknown text reads as ask
    std::set<std::string> installed;
    bool remember;
    int presses;
    double pause;  // between presses
    std::vector<std::string> launched;
    int shows;
    const char* storedAfter;
  };
  const Case cases[] = {
      {"nothing", {"spotify"}, false, 1, 0, {}, 0, "nothing"},
      {"spotify", {"spotify"}, false, 1, 0, {"spotify"}, 0, "spotify"},
      {"spotify", {"org.gnome.Rhythmbox3"}, false, 1, 0, {}, 1, "spotify"},
      {"ask", {"spotify"}, false, 2, 3, {"spotify"}, 1, "ask"},
      {"bogus", {"com.apple.Music"}, true, 2, 3, {"com.apple.Music"}, 1, "music"},
      {"ask", {"spotify"}, true, 2, 11, {}, 2, "ask"},
  };
  for (const auto& c : cases) {
    MediaKeysWorld world;
    FakeIdlePanel panel;
    IdlePlayController idle(world.rt, world.settings, world.tap.players(), panel);
    idle.choice().remember = c.remember;
    world.store.set(Keys::mediaKeysIdlePlay, StoreValue::string(c.idlePlay));
    world.control.installed = c.installed;
    for (int i = 0; i < c.presses; ++i) {
      idle.handle();
      world.rt.advance(c.pause);
    }
    world.rt.drainSerialQueues();
    EXPECT_EQ(world.control.launched, c.launched) << c.idlePlay;
    EXPECT_EQ(panel.shows, c.shows) << c.idlePlay;
    EXPECT_EQ(world.store.object(Keys::mediaKeysIdlePlay), StoreValue::string(c.storedAfter)) << c.idlePlay;
  }
}

TEST(IdlePlay, AChoiceInThePanelIsRememberedWhenAskedAndClosesIt) {
  MediaKeysWorld world;
  FakeIdlePanel panel;
  IdlePlayController idle(world.rt, world.settings, world.tap.players(), panel);
  world.control.installed = {"spotify", "com.apple.Music"};
  idle.handle();
  ASSERT_TRUE(panel.shown);
  EXPECT_EQ(panel.shown->players.size(), 2u);
  panel.shown->choice->remember = true;
  panel.shown->choose(IdlePlayAction::music);
  world.rt.drainSerialQueues();
  EXPECT_FALSE(panel.shown);
  EXPECT_EQ(world.settings.idlePlay(), IdlePlayAction::music);
  EXPECT_EQ(world.control.launched, std::vector<std::string>{"com.apple.Music"});
}

}  // namespace
}  // namespace wh
