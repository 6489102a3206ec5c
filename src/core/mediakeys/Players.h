#pragma once
// The two music players that media keys drive, the commands they take, and sending those
// commands. Commands go out one at a time, in order, on the "wrenhaven.players" queue, so a slow
// or silent player never stalls the main thread.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/runtime/Runtime.h"

namespace wh {

enum class ScriptablePlayer { music, spotify };

// The identifier each player had where this agent was first written; also counted as that player here.
std::string rawValue(ScriptablePlayer player);
// The name shown to the user.
std::string displayName(ScriptablePlayer player);

struct PlayerCommand {
  enum class Kind { playPause, next, previous, play, fastForward, rewind, resume, seek };
  Kind kind = Kind::playPause;
  double seconds = 0;  // seek only: signed

  static PlayerCommand of(Kind kind) { return {kind, 0}; }
  static PlayerCommand seek(double seconds) { return {Kind::seek, seconds}; }
  bool operator==(const PlayerCommand&) const = default;
};

// What a player is asked to do over its media-player interface (MPRIS): a method, and for `Seek`
// the offset in microseconds.
struct PlayerVerb {
  std::string method;
  long long offsetMicroseconds = 0;
  bool operator==(const PlayerVerb&) const = default;
};

// Which application ids stand for each player on this machine: Spotify by its known ids, Music
// by the desktop's default music player (the default handler of audio files).
struct PlayerIdentities {
  // Each list starts with the id the player goes by here (the adapter puts the default music
  // player's id first) and is never empty.
  std::vector<std::string> spotify{"spotify", "com.spotify.Client", rawValue(ScriptablePlayer::spotify)};
  std::vector<std::string> music{rawValue(ScriptablePlayer::music)};

  std::optional<ScriptablePlayer> playerFor(const std::string& appID) const;
  const std::string& appID(ScriptablePlayer player) const { return ids(player).front(); }
  const std::vector<std::string>& ids(ScriptablePlayer player) const;
};

// Port: the players on the desktop. `isRunning`, `isInstalled` and `identities` are cheap and
// may be called on the main thread; `perform` and `launch` block and run on the players' queue.
class PlayerControl {
 public:
  virtual ~PlayerControl() = default;
  virtual PlayerIdentities identities() const = 0;
  virtual bool isRunning(ScriptablePlayer player) const = 0;
  virtual bool isInstalled(const std::string& appID) const = 0;
  // Calls the verb; answers the player's error message, or nothing when it worked.
  virtual std::optional<std::string> perform(ScriptablePlayer player, const PlayerVerb& verb) = 0;
  // Starts the application; answers an error message, or nothing when it started.
  virtual std::optional<std::string> launch(const std::string& appID) = 0;
  // `changed` runs on the main thread whenever a player may have started or quit, or the ids that
  // stand for a player may have changed; it replaces the one before. Nothing stops it running.
  virtual void setChangeHandler(std::function<void()> changed) = 0;
};

class Players {
 public:
  static constexpr const char* queueLabel = "wrenhaven.players";
  static constexpr double firstPlayAfterLaunch = 2.0;
  static constexpr double secondPlayAfterLaunch = 4.5;
  // Fast forward and rewind move this far in one step on players that cannot scan.
  static constexpr double scanStepSeconds = 10.0;

  Players(Runtime& runtime, PlayerControl& control);
  Players(const Players&) = delete;
  Players& operator=(const Players&) = delete;

  // The verb for a command, or nothing when the player has none.
  static std::optional<PlayerVerb> verb(const PlayerCommand& command, ScriptablePlayer player);

  // Sends the command when the player is running; a command never launches a player.
  void send(const PlayerCommand& command, ScriptablePlayer player);
  // Launches the player and asks it to play, twice, in case it was still starting the first time.
  void launchAndPlay(ScriptablePlayer player);
  bool isInstalled(ScriptablePlayer player) const { return installedID(player).has_value(); }
  bool isRunning(ScriptablePlayer player) const { return control_.isRunning(player); }
  PlayerIdentities identities() const { return control_.identities(); }

 private:
  std::optional<std::string> installedID(ScriptablePlayer player) const;

  Runtime& runtime_;
  PlayerControl& control_;
  std::shared_ptr<SerialQueue> queue_;
  HeldWork firstPlay_, secondPlay_;
  Lifetime lifetime_;
};

}  // namespace wh
