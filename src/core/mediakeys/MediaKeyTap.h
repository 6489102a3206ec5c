#pragma once
// Captures the media keys system-wide, asks the router what each does, sends the player command
// or asks for idle play, and keeps the key from the system when the router says so. Switched by
// "mediaKeys.enabled" and "mediaKeys.paused"; it watches its own health and re-checks access.

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/audio/AudioProcesses.h"
#include "core/mediakeys/MediaKeyRouter.h"
#include "core/mediakeys/MediaKeySource.h"
#include "core/mediakeys/PlayerTracker.h"
#include "core/mediakeys/Players.h"
#include "core/notify/NotificationCenter.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh {

class MediaKeyTap {
 public:
  enum class State { off, needsAccessibility, running };
  static constexpr double healthWhileMissing = 1.0;
  static constexpr double healthWhileRunning = 30.0;

  struct Ports {
    MediaKeySource& source;
    PlayerControl& players;
    AudioProcessMonitor& processes;
    // The application ids of the running regular applications (slow: asked only when needed).
    std::function<std::set<std::string>()> regularApps;
  };

  MediaKeyTap(Runtime& runtime, Settings& settings, NotificationCenter& notifications, Ports ports);
  ~MediaKeyTap();
  MediaKeyTap(const MediaKeyTap&) = delete;
  MediaKeyTap& operator=(const MediaKeyTap&) = delete;

  std::function<void()> onChange;
  std::function<void()> onIdlePlay;

  // Follows the audio processes, the players and the settings, then brings the capture in line.
  void start();
  // Starts or stops the capture to match the settings and the access.
  void sync();
  State state() const { return state_; }
  static const char* text(State state);
  // The application to control: the tracker's target, else Spotify when running, else Music.
  std::optional<std::string> currentTarget() const;
  void processesChanged(const std::vector<AudioProcess>& processes);
  // One media key event; answers whether it is swallowed.
  bool handle(const MediaKeyEvent& event);

  Players& players() { return players_; }

 private:
  void startCapture();
  void scheduleHealth();
  void healthTick();
  void disabled(MediaKeySource::Disabled why);
  // Tells `onChange` when the target is not the one last told, or when `moved` says so anyway.
  void followTarget(bool moved);

  Runtime& runtime_;
  Settings& settings_;
  NotificationCenter& notifications_;
  Ports ports_;
  Players players_;
  State state_ = State::off;
  std::unique_ptr<KeyCapture> capture_;
  bool startFailed_ = false;  // the last start made no capture, and said so
  MediaKeyRouter router_;
  PlayerTracker tracker_;
  std::optional<std::string> toldTarget_;
  std::unique_ptr<RepeatingTimer> health_;
  double healthInterval_ = 0;
  std::optional<AudioProcessMonitor::ObserverKey> processObserver_;
  NotificationCenter::Observation settingsObservation_;
  Lifetime lifetime_;
};

}  // namespace wh
