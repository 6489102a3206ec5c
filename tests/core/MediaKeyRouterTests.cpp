// The media key router's decisions over whole key strokes: taps, holds, crossed keys, and keys
// for applications that take no commands.
#include <gtest/gtest.h>

#include "core/mediakeys/MediaKeyRouter.h"

namespace wh {
namespace {

using Key = MediaKeyEvent::Key;
using Kind = PlayerCommand::Kind;
using Decision = MediaKeyRouter::Decision;
constexpr auto music = ScriptablePlayer::music;
constexpr auto spotify = ScriptablePlayer::spotify;

Decision pass() { return {}; }
Decision keep() { return Decision::kept(); }
Decision to(ScriptablePlayer player, std::optional<PlayerCommand> command = std::nullopt) { return {true, player, command}; }
PlayerCommand cmd(Kind kind) { return PlayerCommand::of(kind); }

TEST(MediaKeyRouter, DecidesEachEventOfAStrokeByTargetHoldTimeAndSeekSpacing) {
  struct Row {
    const char* stroke;  // the router starts afresh with each stroke
    const char* target;  // null: no target
    Key key;
    char event;  // 'd' press, 'r' auto-repeat, 'u' release
    double at;
    Decision expected;
  };
  const char* appleMusic = "com.apple.Music";
  const Row rows[] = {
      {"tap next on Music", appleMusic, Key::next, 'd', 0.0, to(music)},
      {"tap next on Music", appleMusic, Key::next, 'u', 0.2, to(music, cmd(Kind::next))},
      {"tap rewind on Spotify", "spotify", Key::rewind, 'd', 0.0, to(spotify)},
      {"tap rewind on Spotify", "spotify", Key::rewind, 'u', 0.1, to(spotify, cmd(Kind::previous))},
      {"hold previous on Spotify", "spotify", Key::previous, 'd', 0.0, to(spotify)},
      {"hold previous on Spotify", "spotify", Key::previous, 'r', 0.3, keep()},
      {"hold previous on Spotify", "spotify", Key::previous, 'r', 0.35, to(spotify, PlayerCommand::seek(-5))},
      {"hold previous on Spotify", "spotify", Key::previous, 'r', 0.5, to(spotify)},
      {"hold previous on Spotify", "spotify", Key::previous, 'r', 0.65, to(spotify, PlayerCommand::seek(-5))},
      {"hold previous on Spotify", "spotify", Key::previous, 'u', 1.0, to(spotify)},
      {"hold fast on Music", appleMusic, Key::fast, 'd', 0.0, to(music)},
      {"hold fast on Music", appleMusic, Key::fast, 'r', 0.4, to(music, cmd(Kind::fastForward))},
      {"hold fast on Music", appleMusic, Key::fast, 'r', 0.5, to(music)},
      {"hold fast on Music", appleMusic, Key::fast, 'u', 0.9, to(music, cmd(Kind::resume))},
      {"crossed keys", "spotify", Key::next, 'd', 0.0, to(spotify)},
      {"crossed keys", "spotify", Key::previous, 'd', 0.1, to(spotify)},
      {"crossed keys", "spotify", Key::next, 'r', 0.5, keep()},
      {"crossed keys", "spotify", Key::next, 'u', 0.6, keep()},
      {"crossed keys", "spotify", Key::previous, 'u', 0.7, to(spotify, cmd(Kind::previous))},
      {"play to Spotify", "spotify", Key::play, 'd', 0.0, to(spotify, cmd(Kind::playPause))},
      {"play to Spotify", "spotify", Key::play, 'r', 0.5, keep()},
      {"play to Spotify", "spotify", Key::play, 'u', 0.6, keep()},
      {"play with no target", nullptr, Key::play, 'd', 0.0, Decision::askForIdlePlay()},
      {"play with no target", nullptr, Key::play, 'u', 0.1, keep()},
      {"next with no target", nullptr, Key::next, 'd', 0.0, pass()},
      {"next with no target", nullptr, Key::next, 'u', 0.1, pass()},
      {"browser target", "firefox", Key::play, 'd', 0.0, pass()},
      {"browser target", "firefox", Key::next, 'd', 0.1, pass()},
      {"browser target", "firefox", Key::next, 'r', 0.6, pass()},
      {"browser target", "firefox", Key::next, 'u', 0.7, pass()},
      {"browser target", "firefox", Key::play, 'u', 0.8, pass()},
  };
  std::optional<MediaKeyRouter> router;
  std::string stroke;
  for (const auto& row : rows) {
    if (stroke != row.stroke) router.emplace();
    stroke = row.stroke;
    const MediaKeyEvent event{row.key, row.event != 'u', row.event == 'r'};
    MediaKeyRouter::Context context{row.target ? std::optional<std::string>(row.target) : std::nullopt, {}};
    EXPECT_EQ(router->handle(event, context, row.at), row.expected) << row.stroke << " at " << row.at;
  }
}

TEST(MediaKeyRouter, KernelKeyEventsDecodeOnlyForTheFiveMediaKeysAndTheThreeKeyValues) {
  EXPECT_EQ(mediaKeyEvent(164, 1), (MediaKeyEvent{Key::play, true, false}));
  EXPECT_EQ(mediaKeyEvent(208, 2), (MediaKeyEvent{Key::fast, true, true}));
  EXPECT_EQ(mediaKeyEvent(168, 0), (MediaKeyEvent{Key::rewind, false, false}));
  EXPECT_EQ(mediaKeyEvent(164, 3), std::nullopt);
  EXPECT_EQ(mediaKeyEvent(30, 1), std::nullopt) << "an ordinary key";
}

}  // namespace
}  // namespace wh
