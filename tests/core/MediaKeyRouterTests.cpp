// The media key router's decisions over whole key strokes, and the player tracker's target.
#include <gtest/gtest.h>

#include "core/mediakeys/KeyRepeat.h"
#include "core/mediakeys/MediaKeyRouter.h"
#include "core/mediakeys/PlayerTracker.h"
#include "doubles/VirtualRuntime.h"

namespace wh {
namespace {

using Key = MediaKeyEvent::Key;
using Kind = PlayerCommand::Kind;
using Decision = MediaKeyRouter::Decision;
constexpr auto music = ScriptablePlayer::music;
constexpr auto spotify = ScriptablePlayer::spotify;
const Decision pass{}, keep = Decision::kept();
Decision to(ScriptablePlayer player, std::optional<PlayerCommand> command = {}) { return {true, player, command}; }
Decision to(ScriptablePlayer player, Kind kind) { return to(player, PlayerCommand::of(kind)); }

TEST(MediaKeyRouter, DecidesEachEventOfAStrokeByTargetHoldTimeAndSeekSpacing) {
  struct Row {
    const char* stroke;  // the router starts afresh with each stroke
    const char* target;  // null: no target
    Key key;
    char event;  // 'd' press, 'r' auto-repeat, 'u' release
    double at;
    Decision expected;
  };
  const Row rows[] = {
      {"tap next on Music", "com.apple.Music", Key::next, 'd', 0.0, to(music)},
      {"tap next on Music", "com.apple.Music", Key::next, 'u', 0.2, to(music, Kind::next)},
      {"tap rewind on Spotify", "spotify", Key::rewind, 'd', 0.0, to(spotify)},
      {"tap rewind on Spotify", "spotify", Key::rewind, 'u', 0.1, to(spotify, Kind::previous)},
      {"hold previous on Spotify", "spotify", Key::previous, 'd', 0.0, to(spotify)},
      {"hold previous on Spotify", "spotify", Key::previous, 'r', 0.3, keep},
      {"hold previous on Spotify", "spotify", Key::previous, 'r', 0.35, to(spotify, PlayerCommand::seek(-5))},
      {"hold previous on Spotify", "spotify", Key::previous, 'r', 0.5, to(spotify)},
      {"hold previous on Spotify", "spotify", Key::previous, 'r', 0.65, to(spotify, PlayerCommand::seek(-5))},
      {"hold previous on Spotify", "spotify", Key::previous, 'u', 1.0, to(spotify)},
      {"hold fast on Music", "com.apple.Music", Key::fast, 'd', 0.0, to(music)},
      {"hold fast on Music", "com.apple.Music", Key::fast, 'r', 0.4, to(music, Kind::fastForward)},
      {"hold fast on Music", "com.apple.Music", Key::fast, 'r', 0.5, to(music)},
      {"hold fast on Music", "com.apple.Music", Key::fast, 'r', 0.65, to(music, Kind::fastForward)},
      {"hold fast on Music", "com.apple.Music", Key::fast, 'u', 0.9, to(music, Kind::resume)},
      {"crossed keys", "spotify", Key::next, 'd', 0.0, to(spotify)},
      {"crossed keys", "spotify", Key::previous, 'd', 0.1, to(spotify)},
      {"crossed keys", "spotify", Key::next, 'r', 0.5, keep},
      {"crossed keys", "spotify", Key::next, 'u', 0.6, keep},
      {"crossed keys", "spotify", Key::previous, 'u', 0.7, to(spotify, Kind::previous)},
      {"play to Spotify", "spotify", Key::play, 'd', 0.0, to(spotify, Kind::playPause)},
      {"play to Spotify", "spotify", Key::play, 'u', 0.6, keep},
      {"play with no target", nullptr, Key::play, 'd', 0.0, Decision::askForIdlePlay()},
      {"play with no target", nullptr, Key::play, 'u', 0.1, keep},
      {"next with no target", nullptr, Key::next, 'd', 0.0, pass},
      {"browser target", "firefox", Key::play, 'd', 0.0, pass},
      {"browser target", "firefox", Key::next, 'r', 0.6, pass},
      {"browser target", "firefox", Key::next, 'u', 0.7, pass},
  };
  std::optional<MediaKeyRouter> router;
  std::string stroke;
  for (const auto& row : rows) {
    if (stroke != row.stroke) router.emplace();
    stroke = row.stroke;
    MediaKeyRouter::Context context{row.target ? std::optional<std::string>(row.target) : std::nullopt, {}};
    EXPECT_EQ(router->handle({row.key, row.event != 'u', row.event == 'r'}, context, row.at), row.expected)
        << row.stroke << " at " << row.at;
  }
}

// A device whose kernel makes no repeats gets them from KeyRepeat: a held next then steps as on a
// keyboard the kernel repeats (the rows above), from the hold threshold on, one step per spacing.
TEST(MediaKeyRouter, AHoldStepsOnTheRepeatsThatKeyRepeatMakes) {
  using Step = std::tuple<const char*, PlayerCommand, std::optional<PlayerCommand>>;  // target, step, on release
  for (const auto& [target, step, onRelease] : {Step{"spotify", PlayerCommand::seek(5), std::nullopt},
                                                Step{"com.apple.Music", PlayerCommand::of(Kind::fastForward),
                                                     PlayerCommand::of(Kind::resume)}}) {
    VirtualRuntime rt;
    MediaKeyRouter router;
    KeyRepeat repeat;
    const MediaKeyRouter::Context context{target, {}};
    const MediaKeyEvent press{Key::next, true, false}, release{Key::next, false, false};
    router.handle(press, context, rt.now());
    repeat.key(press, rt.now());
    std::vector<PlayerCommand> commands;
    std::vector<double> at;
    while (*repeat.due() < 1.0) {
      rt.advance(*repeat.due() - rt.now());
      const auto command = router.handle(*repeat.take(rt.now()), context, rt.now()).command;
      if (command) commands.push_back(*command), at.push_back(rt.now());
    }
    repeat.key(release, rt.now());
    EXPECT_FALSE(repeat.due()) << "released: no more repeats";
    EXPECT_EQ(router.handle(release, context, rt.now()).command, onRelease);
    EXPECT_EQ(commands, std::vector<PlayerCommand>(3, step)) << target;
    ASSERT_EQ(at.size(), 3u);
    EXPECT_EQ(at[0], MediaKeyRouter::holdThreshold);
    for (std::size_t i = 1; i < at.size(); ++i) {
      EXPECT_NEAR(at[i] - at[i - 1], MediaKeyRouter::seekSpacing + KeyRepeat::period / 2, KeyRepeat::period / 2 + 1e-9);
    }
  }
}

TEST(PlayerTracker, TheMostRecentPlayingAppWinsThenTheMostRecentRunningOneAndSystemAndMeetingAppsNeverCount) {
  struct Step {
    std::set<std::string> output, running;
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
  for (int i = 0; i <= 20; ++i) tracker.update({"app" + std::to_string(i)});
  EXPECT_EQ(tracker.history().size(), PlayerTracker::historyLimit);
  EXPECT_EQ(tracker.history().back(), "app1") << "the 21st app pushed the oldest out";
}

}  // namespace
}  // namespace wh
