#include "core/mediakeys/IdlePlay.h"

namespace wh {

namespace {

std::optional<ScriptablePlayer> playerOf(IdlePlayAction action) {
  if (action == IdlePlayAction::spotify) return ScriptablePlayer::spotify;
  if (action == IdlePlayAction::music) return ScriptablePlayer::music;
  return std::nullopt;
}

IdlePlayAction actionOf(ScriptablePlayer player) {
  return player == ScriptablePlayer::spotify ? IdlePlayAction::spotify : IdlePlayAction::music;
}

}  // namespace

IdlePlayController::IdlePlayController(Runtime& runtime, Settings& settings, Players& players, IdlePlayPanel& panel)
    : runtime_(runtime), settings_(settings), players_(players), panel_(panel) {}

ScriptablePlayer IdlePlayController::suggested() const {
  return players_.isInstalled(ScriptablePlayer::spotify) ? ScriptablePlayer::spotify : ScriptablePlayer::music;
}

void IdlePlayController::handle() {
  const IdlePlayAction action = settings_.idlePlay();
  if (action == IdlePlayAction::nothing) return;
  if (const auto player = playerOf(action)) {
    if (players_.isInstalled(*player)) {
      players_.launchAndPlay(*player);
    } else {
      show();
    }
    return;
  }
  if (!shown_) {
    show();
    return;
  }
  // Play pressed again while the panel is up.
  const ScriptablePlayer player = suggested();
  if (choice_.remember) settings_.setIdlePlay(actionOf(player));
  close();
  players_.launchAndPlay(player);
}

void IdlePlayController::show() {
  IdlePlayView view;
  view.suggested = suggested();
  for (const auto player : {ScriptablePlayer::spotify, ScriptablePlayer::music}) {
    if (players_.isInstalled(player)) view.players.push_back(player);
  }
  view.choice = &choice_;
  view.choose = lifetime_.guard([this](IdlePlayAction action) { choose(action); });
  shown_ = true;
  panel_.show(view);
  dismissWork_ = runtime_.main().after(dismissAfter, lifetime_.guard([this] { close(); }));
}

void IdlePlayController::choose(IdlePlayAction action) {
  if (choice_.remember) settings_.setIdlePlay(action);
  close();
  if (const auto player = playerOf(action)) players_.launchAndPlay(*player);
}

void IdlePlayController::close() {
  dismissWork_.cancel();
  if (!shown_) return;
  shown_ = false;
  panel_.close();
}

}  // namespace wh
