#include "core/mediakeys/Players.h"

#include <algorithm>
#include <cmath>

#include "core/log/Log.h"

namespace wh {

std::string rawValue(ScriptablePlayer player) {
  return player == ScriptablePlayer::music ? "com.apple.Music" : "com.spotify.client";
}

std::string displayName(ScriptablePlayer player) { return player == ScriptablePlayer::music ? "Music" : "Spotify"; }

std::optional<ScriptablePlayer> PlayerIdentities::playerFor(const std::string& appID) const {
  for (const auto player : {ScriptablePlayer::music, ScriptablePlayer::spotify}) {
    const auto& list = ids(player);
    if (std::find(list.begin(), list.end(), appID) != list.end()) return player;
  }
  return std::nullopt;
}

const std::vector<std::string>& PlayerIdentities::ids(ScriptablePlayer player) const {
  return player == ScriptablePlayer::music ? music : spotify;
}

namespace {

long long microseconds(double seconds) { return std::llround(seconds * 1'000'000.0); }

}  // namespace

std::optional<PlayerVerb> Players::verb(const PlayerCommand& command, ScriptablePlayer player) {
  using Kind = PlayerCommand::Kind;
  const bool music = player == ScriptablePlayer::music;
  switch (command.kind) {
    case Kind::playPause:
      return PlayerVerb{"PlayPause"};
    case Kind::next:
      return PlayerVerb{"Next"};
    case Kind::previous:
      return PlayerVerb{"Previous"};
    case Kind::play:
      return PlayerVerb{"Play"};  // does nothing to a player that is already playing
    case Kind::fastForward:
      if (music) return PlayerVerb{"Seek", microseconds(scanStepSeconds)};
      return std::nullopt;
    case Kind::rewind:
      if (music) return PlayerVerb{"Seek", microseconds(-scanStepSeconds)};
      return std::nullopt;
    case Kind::resume:
      return std::nullopt;  // a step seek leaves nothing to end
    case Kind::seek:
      if (!music) return PlayerVerb{"Seek", microseconds(command.seconds)};
      return std::nullopt;
  }
  return std::nullopt;
}

Players::Players(Runtime& runtime, PlayerControl& control)
    : runtime_(runtime), control_(control), queue_(runtime.makeSerialQueue(queueLabel, QueuePriority::userInitiated)) {}

void Players::send(const PlayerCommand& command, ScriptablePlayer player) {
  if (!control_.isRunning(player)) return;
  const auto verb = Players::verb(command, player);
  if (!verb) return;
  queue_->async([&control = control_, player, verb = *verb] {
    if (const auto error = control.perform(player, verb)) {
      Log::info("player command failed (" + control.identities().appID(player) + "): " + *error);
    }
  });
}

void Players::launchAndPlay(ScriptablePlayer player) {
  const auto installed = installedID(player);
  if (!installed) {
    Log::info(control_.identities().appID(player) + " is not installed");
    return;
  }
  const std::string appID = *installed;
  runThenMain<std::optional<std::string>>(
      *queue_, runtime_.main(), lifetime_, [&control = control_, appID] { return control.launch(appID); },
      [this, player, appID](std::optional<std::string> error) {
        if (error) {
          Log::info("could not open " + appID + ": " + *error);
          return;
        }
        const auto play = PlayerCommand::of(PlayerCommand::Kind::play);
        firstPlay_ = runtime_.main().after(firstPlayAfterLaunch, lifetime_.guard([this, play, player] { send(play, player); }));
        secondPlay_ = runtime_.main().after(secondPlayAfterLaunch, lifetime_.guard([this, play, player] { send(play, player); }));
      });
}

std::optional<std::string> Players::installedID(ScriptablePlayer player) const {
  const auto identities = control_.identities();
  for (const auto& id : identities.ids(player)) {
    if (control_.isInstalled(id)) return id;
  }
  return std::nullopt;
}

}  // namespace wh
