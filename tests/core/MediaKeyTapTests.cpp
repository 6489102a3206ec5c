// The media key tap switched by its settings and by access, and what idle play does for each setting.
#include <gtest/gtest.h>

#include <algorithm>

#include "AgentWorld.h"

namespace wh {
namespace {

using State = MediaKeyTap::State;

using MediaKeysTest = test::AgentWorld;

TEST_F(MediaKeysTest, TheTapFollowsItsSettingsChecksAccessEverySecondWhileMissingAndItsHealthEveryHalfMinute) {
  MediaKeyTap& tap = services.mediaKeys;
  int changes = 0;
  tap.onChange = [&] { ++changes; };
  tap.start();
  EXPECT_EQ(rt.nextDueIn(), -1) << "off: no health timer";
  store.set(Keys::mediaKeysEnabled, StoreValue::boolean(true));
  settings.changed("");
  EXPECT_EQ(tap.state(), State::needsAccessibility);
  keySource.granted = true;
  rt.advance(0.9);
  EXPECT_EQ(tap.state(), State::needsAccessibility) << "access is looked at again once a second";
  rt.advance(0.1);
  EXPECT_EQ(tap.state(), State::running);

  // Running: a tap that the system turned off without a word is turned on again by the half-minute tick.
  keySource.enabled = false;
  rt.advance(29.9);
  EXPECT_FALSE(keySource.enabled);
  rt.advance(0.1);
  EXPECT_TRUE(keySource.enabled);
  EXPECT_EQ(log->lines.back(), "media key tap was disabled; re-enabling");
  keySource.handler.disabled(MediaKeySource::Disabled::byTimeout);
  EXPECT_EQ(log->lines.back(), "media key tap disabled by the system (4294967294); re-enabling");

  keySource.granted = false;  // access taken away: noticed at the next half-minute tick
  rt.advance(29.9);
  EXPECT_EQ(tap.state(), State::running);
  rt.advance(0.1);
  EXPECT_EQ(tap.state(), State::needsAccessibility);
  store.set(Keys::mediaKeysPaused, StoreValue::boolean(true));
  settings.changed("");
  EXPECT_EQ(tap.state(), State::off);
  EXPECT_EQ(rt.nextDueIn(), -1) << "paused: no health timer";
  EXPECT_EQ(changes, 4);
}

TEST_F(MediaKeysTest, ARefusedTapIsMissingAccessTriedEverySecondAndSaidOnceUntilItStarts) {
  MediaKeyTap& tap = services.mediaKeys;
  keySource.granted = true;
  keySource.refuses = true;
  store.set(Keys::mediaKeysEnabled, StoreValue::boolean(true));
  tap.start();
  EXPECT_EQ(tap.state(), State::needsAccessibility);
  rt.advance(5.0);
  auto said = [&](const std::string& line) { return std::count(log->lines.begin(), log->lines.end(), line); };
  EXPECT_EQ(said("could not create media key tap"), 1) << "five ticks, one line";
  keySource.refuses = false;
  rt.advance(1.0);
  EXPECT_EQ(tap.state(), State::running);
  EXPECT_EQ(said("media key tap running"), 1);
}

TEST_F(MediaKeysTest, TheToldTargetFollowsWhatPlaysThePlayersThatRunAndApplicationsThatQuit) {
  MediaKeyTap& tap = services.mediaKeys;
  std::string told;
  tap.onChange = [&] { told += tap.currentTarget().value_or("-") + " "; };
  tap.start();
  const auto sound = [&](const std::string& app, bool playing) {
    tap.processesChanged({AudioProcess{1, 40, app, false, playing, app}});
  };
  const struct {
    std::function<void()> change;
    const char* told;  // what `onChange` has heard after the change, in order
  } steps[] = {
      {[&] { players.running = {ScriptablePlayer::music}, players.changed(); }, "com.apple.Music "},
      {[&] { players.running.insert(ScriptablePlayer::spotify), players.changed(); }, "spotify "},
      {[&] { players.changed(); }, ""},  // nothing moved: nothing told
      {[&] { sound("org.videolan.vlc", true); }, "org.videolan.vlc "},
      {[&] { regularApps = {"org.videolan.vlc"}, sound("org.videolan.vlc", false); }, "org.videolan.vlc "},
      {[&] { players.running.clear(), players.changed(); }, ""},  // the player used last still runs
      {[&] { regularApps.clear(), rt.advance(MediaKeyTap::healthWhileRunning); }, "- "},  // it quit unseen
      {[&] { players.running = {ScriptablePlayer::music}, players.changed(); }, "com.apple.Music "},
      {[&] { players.running.clear(), players.changed(); }, "- "},
  };
  store.set(Keys::mediaKeysEnabled, StoreValue::boolean(true));
  keySource.granted = true;
  settings.changed("");
  for (const auto& step : steps) {
    told.clear();
    step.change();
    EXPECT_EQ(told, step.told) << &step - steps;
  }
}

TEST_F(MediaKeysTest, IdlePlayStartsAPlayerOrAsksForEachSettingAndASecondPressTakesTheSuggestion) {
  using Strings = std::vector<std::string>;
  // Stored setting (unknown text reads as ask), installed player, remember, pause before a second
  // press (none when negative); then what was launched, how often the panel showed, the setting after.
  const std::tuple<const char*, std::string, bool, double, Strings, int, const char*> cases[] = {
      {"nothing", "spotify", false, -1, {}, 0, "nothing"},
      {"spotify", "spotify", false, -1, {"spotify"}, 0, "spotify"},
      {"spotify", "org.gnome.Rhythmbox3", false, -1, {}, 1, "spotify"},
      {"ask", "spotify", false, 3, {"spotify"}, 1, "ask"},
      {"bogus", "com.apple.Music", true, 3, {"com.apple.Music"}, 1, "music"},
      {"ask", "spotify", true, 11, {}, 2, "ask"},
  };
  for (const auto& [idlePlay, installed, remember, pause, launched, shows, storedAfter] : cases) {
    FakeIdlePanel panel;
    IdlePlayController idle(rt, settings, services.mediaKeys.players(), panel);
    idle.choice().remember = remember;
    store.set(Keys::mediaKeysIdlePlay, StoreValue::string(idlePlay));
    players.installed = {installed};
    players.launched.clear();
    idle.handle();
    if (pause >= 0) {
      rt.advance(pause);
      idle.handle();
    }
    rt.drainSerialQueues();
    EXPECT_EQ(players.launched, launched) << idlePlay;
    EXPECT_EQ(panel.shows, shows) << idlePlay;
    EXPECT_EQ(store.object(Keys::mediaKeysIdlePlay), StoreValue::string(storedAfter)) << idlePlay;
  }
}

}  // namespace
}  // namespace wh
