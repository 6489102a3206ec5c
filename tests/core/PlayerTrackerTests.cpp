// The player tracker's history and target, and what the players are sent.
#include <gtest/gtest.h>

#include "core/mediakeys/PlayerTracker.h"
#include "doubles/FakeMediaKeys.h"
#include "doubles/VirtualRuntime.h"

namespace wh {
namespace {

using Apps = std::set<std::string>;
using Kind = PlayerCommand::Kind;

TEST(PlayerTracker, TheMostRecentPlayingAppWinsThenTheMostRecentRunningOneAndSystemAndMeetingAppsNeverCount) {
  struct Step {
    Apps output, running;
    std::vector<std::string> history;
    std::optional<std::string> target;
  };
  const Step steps[] = {
      {{"rhythmbox"}, {}, {"rhythmbox"}, "rhythmbox"},
      {{"rhythmbox", "firefox", "us.zoom.xos", "com.apple.coreaudiod"}, {}, {"firefox", "rhythmbox"}, "firefox"},
      {{}, {"rhythmbox"}, {"firefox", "rhythmbox"}, "rhythmbox"},
      {{"rhythmbox", "b", "a"}, {}, {"rhythmbox", "b", "a", "firefox"}, "rhythmbox"},
      {{}, {"vlc"}, {"rhythmbox", "b", "a", "firefox"}, std::nullopt},
  };
  PlayerTracker tracker;
  for (const auto& step : steps) {
    tracker.update(step.output);
    EXPECT_EQ(tracker.history(), step.history);
    EXPECT_EQ(tracker.target([&] { return step.running; }), step.target);
  }
  for (int i = 0; i < 21; ++i) tracker.update({"app" + std::to_string(i)});
  EXPECT_EQ(tracker.history().size(), PlayerTracker::historyLimit);
  EXPECT_EQ(tracker.history().front(), "app20");
  EXPECT_EQ(tracker.history().back(), "app1") << "the 21st app pushed the oldest out";
}

TEST(Players, CommandsReachOnlyRunningPlayersThatHaveAVerbForThemInOrder) {
  VirtualRuntime runtime;
  FakePlayers control;
  Players players(runtime, control);
  control.running = {ScriptablePlayer::spotify};
  players.send(PlayerCommand::of(Kind::next), ScriptablePlayer::music);  // not running
  players.send(PlayerCommand::of(Kind::fastForward), ScriptablePlayer::spotify);
  players.send(PlayerCommand::seek(-5), ScriptablePlayer::spotify);
  players.send(PlayerCommand::of(Kind::previous), ScriptablePlayer::spotify);
  control.running.insert(ScriptablePlayer::music);
  players.send(PlayerCommand::seek(5), ScriptablePlayer::music);
  players.send(PlayerCommand::of(Kind::rewind), ScriptablePlayer::music);
  runtime.drainSerialQueues();
  const std::vector<std::pair<ScriptablePlayer, PlayerVerb>> expected{
      {ScriptablePlayer::spotify, {"Seek", -5'000'000}},
      {ScriptablePlayer::spotify, {"Previous"}},
      {ScriptablePlayer::music, {"Seek", -10'000'000}}};
  EXPECT_EQ(control.performed, expected);
  EXPECT_TRUE(control.launched.empty()) << "a command never launches a player";
}

TEST(Players, LaunchAndPlayStartsAnInstalledPlayerAndAsksItToPlayTwice) {
  VirtualRuntime runtime;
  FakePlayers control;
  Players players(runtime, control);
  players.launchAndPlay(ScriptablePlayer::spotify);
  runtime.drainSerialQueues();
  EXPECT_TRUE(control.launched.empty()) << "not installed";
  control.installed = {"com.spotify.Client"};
  players.launchAndPlay(ScriptablePlayer::spotify);
  runtime.drainSerialQueues();
  control.running = {ScriptablePlayer::spotify};
  for (double second : {1.9, 0.2, 2.5}) {
    runtime.advance(second);
    runtime.drainSerialQueues();
  }
  EXPECT_EQ(control.launched, std::vector<std::string>{"com.spotify.Client"});
  EXPECT_EQ(control.performed.size(), 2u);
}

}  // namespace
}  // namespace wh
