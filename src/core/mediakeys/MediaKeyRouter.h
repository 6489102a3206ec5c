#pragma once
// What each media key event does: swallowed or passed through, to which player, with which
// command. A short press of next or previous skips on release; holding it steps through the track,
// at most one step every `seekSpacing`: fast forward or rewind (Music, one step each) or a
// five-second seek (Spotify). Holds advance on the key's auto-repeats (`KeyRepeat` makes them for
// devices that make none): no timers here.

#include <optional>
#include <set>
#include <string>

#include "core/mediakeys/Players.h"

namespace wh {

struct MediaKeyEvent {
  enum class Key { play, next, previous, fast, rewind };
  Key key = Key::play;
  bool isDown = false;    // press and its auto-repeats; false for the release
  bool isRepeat = false;  // an auto-repeat while the key is held

  // +1 for next and fast, -1 for previous and rewind, 0 for play.
  int direction() const;
  bool operator==(const MediaKeyEvent&) const = default;
};

// The media key event of a kernel key event (code, value 1 press, 2 repeat, 0 release); nothing
// for any other key or value. Play, pause and play/pause are all the play key.
std::optional<MediaKeyEvent> mediaKeyEvent(int code, int value);

class MediaKeyRouter {
 public:
  static constexpr double holdThreshold = 0.35;
  static constexpr double seekSpacing = 0.25;
  static constexpr double seekStepSeconds = 5.0;

  struct Context {
    std::optional<std::string> target;  // the application that last played, if any
    PlayerIdentities players;           // which ids are the players that take commands
  };

  struct Decision {
    bool swallow = false;
    std::optional<ScriptablePlayer> player;
    std::optional<PlayerCommand> command;
    bool idlePlay = false;

    // Swallowed, with nothing to send.
    static Decision kept() { return {true, std::nullopt, std::nullopt}; }
    static Decision askForIdlePlay() { return {true, std::nullopt, std::nullopt, true}; }
    bool operator==(const Decision&) const = default;
  };

  struct Held {
    ScriptablePlayer player;
    int direction;
    double since;
    bool seeking = false;
    double lastSeek = -1e300;  // the distant past
  };

  Decision handle(const MediaKeyEvent& event, const Context& context, double now);

  const std::optional<Held>& held() const { return held_; }

 private:
  Decision press(const MediaKeyEvent& event, const Context& context, double now);
  Decision repeat(const MediaKeyEvent& event, double now);
  Decision release(const MediaKeyEvent& event);

  std::optional<Held> held_;
  std::set<MediaKeyEvent::Key> swallowedDown_;
};

}  // namespace wh
