#pragma once
// The processes the sound server knows as audio clients: whether each is playing or recording
// right now, and which application owns it. One monitor serves the whole agent, on the main thread.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/audio/AppGrouping.h"
#include "core/audio/AudioHardware.h"
#include "core/audio/CoreAudio.h"
#include "core/runtime/Runtime.h"

namespace wh {

struct AudioProcess {
  AudioObjectID object = audioObjectUnknown;
  std::int32_t pid = 0;  // 0 when the server does not report one
  std::string bundleID;  // empty when unknown
  bool runningInput = false;
  bool runningOutput = false;
  std::string appID;  // the owning application; equals bundleID when the process is an app itself

  bool operator==(const AudioProcess&) const = default;
};

class AudioProcessMonitor {
 public:
  using Observer = std::function<void(const std::vector<AudioProcess>&)>;
  using ObserverKey = std::uint64_t;

  static constexpr double coalescingDelay = 0.05;
  static constexpr double activePollInterval = 2.0;
  static constexpr double idlePollInterval = 15.0;
  static constexpr int maxIdentityTries = 3;

  AudioProcessMonitor(Runtime& runtime, AudioHardware& hardware, AppGrouping& grouping);
  AudioProcessMonitor(const AudioProcessMonitor&) = delete;
  AudioProcessMonitor& operator=(const AudioProcessMonitor&) = delete;

  // Listens to the process list, refreshes at once and starts the safety poll. Idempotent.
  void start();
  // Reads the list afresh; calls the observers when it changed. Observers must not call it.
  void refresh();
  // The last published list, in the sound server's order.
  const std::vector<AudioProcess>& processes() const { return processes_; }

  // Observers are called on the main thread with the whole new list each time it changes.
  ObserverKey addObserver(Observer observer);
  void removeObserver(ObserverKey key);

  // The safety poll's interval, when it runs.
  std::optional<double> pollInterval() const { return poll_ ? std::optional(pollIntervalValue_) : std::nullopt; }

 private:
  struct Identity {
    std::int32_t pid = 0;
    std::string bundleID;
    std::optional<std::string> appID;  // absent while still being resolved
    int tries = 0;
  };

  void scheduleRefresh();
  void schedulePoll();
  void logOutputChanges(const std::vector<AudioProcess>& list) const;

  Runtime& runtime_;
  AudioHardware& hardware_;
  AppGrouping& grouping_;
  std::vector<AudioProcess> processes_;
  std::unique_ptr<CA::Listener> listListener_;
  std::map<AudioObjectID, std::vector<std::unique_ptr<CA::Listener>>> perProcess_;
  std::map<ObserverKey, Observer> observers_;
  ObserverKey nextObserverKey_ = 1;
  bool pending_ = false;
  HeldWork pendingRefresh_;
  std::unique_ptr<RepeatingTimer> poll_;
  double pollIntervalValue_ = 0;
  std::map<AudioObjectID, Identity> identities_;
  Lifetime lifetime_;
};

}  // namespace wh
