#pragma once
// What play does when nothing is playing: start Spotify, start Music, nothing, or ask with a
// small panel that offers the installed players. Pressing play again while the panel is up takes
// the suggested player.

#include <functional>
#include <string>
#include <vector>

#include "core/mediakeys/Players.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh {

// The panel's "Remember my choice" switch.
struct IdleChoice {
  bool remember = false;
};

// What the panel shows, and what its buttons do.
struct IdlePlayView {
  ScriptablePlayer suggested = ScriptablePlayer::spotify;
  std::vector<ScriptablePlayer> players;  // installed ones only, Spotify first
  IdleChoice* choice = nullptr;           // the switch writes `remember` here
  std::function<void(IdlePlayAction)> choose;

  static constexpr const char* title = "Nothing is playing";
  static constexpr const char* rememberLabel = "Remember my choice";
  std::string prompt() const { return "What should \u25B6 do? Press \u25B6 again for " + displayName(suggested); }
};

// Port: the floating panel, drawn by the user interface.
class IdlePlayPanel {
 public:
  virtual ~IdlePlayPanel() = default;
  // Shows the panel near the top of the screen, in front of everything, without taking focus.
  virtual void show(const IdlePlayView& view) = 0;
  virtual void close() = 0;
};

class IdlePlayController {
 public:
  static constexpr double dismissAfter = 10.0;

  IdlePlayController(Runtime& runtime, Settings& settings, Players& players, IdlePlayPanel& panel);
  IdlePlayController(const IdlePlayController&) = delete;
  IdlePlayController& operator=(const IdlePlayController&) = delete;

  // One request from the play key.
  void handle();
  void show();
  void close();
  bool isShown() const { return shown_; }
  IdleChoice& choice() { return choice_; }

 private:
  ScriptablePlayer suggested() const;
  void choose(IdlePlayAction action);

  Runtime& runtime_;
  Settings& settings_;
  Players& players_;
  IdlePlayPanel& panel_;
  IdleChoice choice_;
  bool shown_ = false;
  HeldWork dismissWork_;
  Lifetime lifetime_;
};

}  // namespace wh
