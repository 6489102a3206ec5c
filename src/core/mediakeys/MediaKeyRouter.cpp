#include "core/mediakeys/MediaKeyRouter.h"

#include "core/input/KeyCapabilities.h"

namespace wh {

using Key = MediaKeyEvent::Key;
using Kind = PlayerCommand::Kind;

int MediaKeyEvent::direction() const {
  switch (key) {
    case Key::next:
    case Key::fast:
      return 1;
    case Key::previous:
    case Key::rewind:
      return -1;
    case Key::play:
      break;
  }
  return 0;
}

std::optional<MediaKeyEvent> mediaKeyEvent(int code, int value) {
  if (value < 0 || value > 2) return std::nullopt;
  Key key;
  switch (code) {
    case KeyCode::playPause:
    case KeyCode::playCD:
    case KeyCode::pauseCD:
    case KeyCode::play: key = Key::play; break;
    case KeyCode::nextSong: key = Key::next; break;
    case KeyCode::previousSong: key = Key::previous; break;
    case KeyCode::fastForward: key = Key::fast; break;
    case KeyCode::rewind: key = Key::rewind; break;
    default: return std::nullopt;
  }
  return MediaKeyEvent{key, value != 0, value == 2};
}

MediaKeyRouter::Decision MediaKeyRouter::handle(const MediaKeyEvent& event, const Context& context, double now) {
  if (!event.isDown) return release(event);
  if (event.isRepeat) return repeat(event, now);
  return press(event, context, now);
}

MediaKeyRouter::Decision MediaKeyRouter::press(const MediaKeyEvent& event, const Context& context, double now) {
  if (!context.target) {
    if (event.key != Key::play) return {};
    swallowedDown_.insert(event.key);
    return Decision::askForIdlePlay();
  }
  const auto player = context.players.playerFor(*context.target);
  if (!player) return {};  // the system delivers the key to that application
  swallowedDown_.insert(event.key);
  if (event.key == Key::play) return {true, player, PlayerCommand::of(Kind::playPause)};
  held_ = Held{*player, event.direction(), now};
  return {true, player, std::nullopt};
}

MediaKeyRouter::Decision MediaKeyRouter::repeat(const MediaKeyEvent& event, double now) {
  if (!swallowedDown_.count(event.key)) return {};
  if (!held_ || event.key == Key::play || event.direction() != held_->direction || now - held_->since < holdThreshold) {
    return Decision::kept();
  }
  std::optional<PlayerCommand> command;
  if (now - held_->lastSeek >= seekSpacing) {
    // Music's fast forward and rewind are steps too: no MPRIS player scans by itself.
    command = held_->player == ScriptablePlayer::music
                  ? PlayerCommand::of(held_->direction > 0 ? Kind::fastForward : Kind::rewind)
                  : PlayerCommand::seek(held_->direction * seekStepSeconds);
    held_->lastSeek = now;
  }
  held_->seeking = true;
  return {true, held_->player, command};
}

MediaKeyRouter::Decision MediaKeyRouter::release(const MediaKeyEvent& event) {
  if (swallowedDown_.erase(event.key) == 0) return {};
  if (!held_ || event.key == Key::play || event.direction() != held_->direction) return Decision::kept();
  const Held ended = *held_;
  held_.reset();
  std::optional<PlayerCommand> command;
  if (ended.seeking) {
    if (ended.player == ScriptablePlayer::music) command = PlayerCommand::of(Kind::resume);
  } else {
    command = PlayerCommand::of(ended.direction > 0 ? Kind::next : Kind::previous);
  }
  return {true, ended.player, command};
}

}  // namespace wh
