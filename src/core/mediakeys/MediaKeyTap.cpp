#include "core/mediakeys/MediaKeyTap.h"

#include "core/log/Log.h"

namespace wh {

MediaKeyTap::MediaKeyTap(Runtime& runtime, Settings& settings, NotificationCenter& notifications, Ports ports)
    : runtime_(runtime),
      settings_(settings),
      notifications_(notifications),
      ports_(std::move(ports)),
      players_(runtime, ports_.players) {}

MediaKeyTap::~MediaKeyTap() {
  if (processObserver_) {
    ports_.processes.removeObserver(*processObserver_);
    ports_.players.setChangeHandler(nullptr);
  }
}

const char* MediaKeyTap::text(State state) {
  switch (state) {
    case State::off:
      return "off";
    case State::needsAccessibility:
      return "needsAccessibility";
    case State::running:
      break;
  }
  return "running";
}

void MediaKeyTap::start() {
  if (!processObserver_) {
    processObserver_ = ports_.processes.addObserver(
        lifetime_.guard([this](const std::vector<AudioProcess>& processes) { processesChanged(processes); }));
    // A player that quits or starts moves the target as much as a sound that stops.
    ports_.players.setChangeHandler(lifetime_.guard([this] { followTarget(false); }));
    processesChanged(ports_.processes.processes());
    settingsObservation_ =
        notifications_.observe(Settings::changedName, lifetime_.guard([this](const std::string&) { sync(); }));
  }
  sync();
  scheduleHealth();
}

void MediaKeyTap::sync() {
  State next = State::off;
  if (settings_.boolValue(Keys::mediaKeysEnabled, false) && !settings_.boolValue(Keys::mediaKeysPaused, false)) {
    if (!ports_.source.accessGranted()) {
      capture_.reset();
      startFailed_ = false;
      next = State::needsAccessibility;
    } else {
      if (!capture_) startCapture();
      next = capture_ ? State::running : State::needsAccessibility;
    }
  } else {
    capture_.reset();
    startFailed_ = false;
  }
  if (next == state_) return;
  state_ = next;
  if (onChange) onChange();
  scheduleHealth();
}

void MediaKeyTap::startCapture() {
  // The capture calls back only while it exists, and the tap owns it.
  capture_ = ports_.source.start({[this](const MediaKeyEvent& event) { return handle(event); },
                                  [this](MediaKeySource::Disabled why) { disabled(why); }});
  if (capture_) {
    Log::info("media key tap running");
  } else if (!startFailed_) {
    // Said once: while the cause lasts, every health tick fails the same way.
    Log::info("could not create media key tap");
  }
  startFailed_ = !capture_;
}

void MediaKeyTap::scheduleHealth() {
  const double interval = state_ == State::needsAccessibility ? healthWhileMissing
                          : state_ == State::running          ? healthWhileRunning
                                                              : 0.0;
  if (interval == 0.0) {
    health_.reset();
    healthInterval_ = 0;
    return;
  }
  if (health_ && healthInterval_ == interval) return;
  healthInterval_ = interval;
  health_ = runtime_.main().every(interval, interval / 4, lifetime_.guard([this] { healthTick(); }));
}

void MediaKeyTap::healthTick() {
  if (capture_ && !capture_->isEnabled()) {
    Log::info("media key tap was disabled; re-enabling");
    capture_->enable();
  }
  if (state_ != State::off || settings_.boolValue(Keys::mediaKeysEnabled, false)) sync();
  // Regular applications come and go without a word: a quit one leaves the target here at the latest.
  followTarget(false);
}

void MediaKeyTap::followTarget(bool moved) {
  auto target = currentTarget();
  if (!moved && target == toldTarget_) return;
  toldTarget_ = std::move(target);
  if (onChange) onChange();
}

void MediaKeyTap::disabled(MediaKeySource::Disabled why) {
  Log::info("media key tap disabled by the system (" + std::to_string(static_cast<unsigned>(why)) + "); re-enabling");
  if (capture_) capture_->enable();
}

std::optional<std::string> MediaKeyTap::currentTarget() const {
  if (auto target = tracker_.target(ports_.regularApps)) return target;
  for (const auto player : {ScriptablePlayer::spotify, ScriptablePlayer::music}) {
    if (players_.isRunning(player)) return players_.identities().appID(player);
  }
  return std::nullopt;
}

void MediaKeyTap::processesChanged(const std::vector<AudioProcess>& processes) {
  std::set<std::string> output;
  for (const auto& process : processes) {
    const std::string& app = process.appID.empty() ? process.bundleID : process.appID;
    if (process.runningOutput && !app.empty()) output.insert(app);
  }
  const auto history = tracker_.history();
  const auto playing = tracker_.playing();
  tracker_.update(output);
  // Only the tracker can move the target here; asking for it otherwise would read the running
  // applications on every change of the process list.
  if (tracker_.history() != history || tracker_.playing() != playing) followTarget(true);
}

bool MediaKeyTap::handle(const MediaKeyEvent& event) {
  const auto decision = router_.handle(event, {currentTarget(), players_.identities()}, runtime_.clock().now());
  if (decision.player && decision.command) players_.send(*decision.command, *decision.player);
  if (decision.idlePlay) {
    // The chooser never runs inside the key's own handling.
    runtime_.main().post(lifetime_.guard([this] {
      if (onIdlePlay) onIdlePlay();
    }));
  }
  return decision.swallow;
}

}  // namespace wh
