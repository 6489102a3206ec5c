#pragma once
// Keeps the default input on a microphone that is not Bluetooth, so that headphones stay in their
// music profile instead of dropping to the headset profile as soon as anything records from
// them. It lets go during calls (by the call mode) or when the user asks for the headphone
// microphone, and it pauses when another program keeps moving the input back.
//
// Every trigger ends in evaluate(): the default input or the device list changing (listeners on
// the audio system), a call starting or ending (an observer on the audio process monitor), a
// settings change (settingsChanged, called by the wiring), the deferred retry and the re-pin
// after a call, and the server's answer to each write of the default input. Everything runs on
// the main thread.

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/audio/AudioHardware.h"
#include "core/audio/AudioProcesses.h"
#include "core/audio/CoreAudio.h"
#include "core/quality/CorrectionPacer.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh {

class InputPinner {
 public:
  class Status {
   public:
    enum class Kind { pinned, off, idle, releasedForCall, releasedManually, noMicrophone, fighting };
    // The default input is held on the microphone called `name`.
    static Status pinned(std::string name) { return Status(Kind::pinned, std::move(name)); }
    static Status off() { return Status(Kind::off); }
    static Status idle() { return Status(Kind::idle); }
    static Status releasedForCall() { return Status(Kind::releasedForCall); }
    static Status releasedManually() { return Status(Kind::releasedManually); }
    static Status noMicrophone() { return Status(Kind::noMicrophone); }
    static Status fighting() { return Status(Kind::fighting); }

    Kind kind() const { return kind_; }
    // The pinned microphone's name; empty for every other case.
    const std::string& name() const { return name_; }
    friend bool operator==(const Status&, const Status&) = default;

   private:
    explicit Status(Kind kind, std::string name = {}) : kind_(kind), name_(std::move(name)) {}
    Kind kind_;
    std::string name_;
  };

  // The user's temporary choice; not stored.
  enum class Override { none, allowHeadphoneMic, forcePin };

  // How long after a call ends the input is pinned again.
  static constexpr double repinDelay = 3.0;

  InputPinner(Runtime& runtime, Settings& settings, AudioHardware& hardware, AudioProcessMonitor& processes);
  ~InputPinner();
  InputPinner(const InputPinner&) = delete;
  InputPinner& operator=(const InputPinner&) = delete;

  // Called whenever `status` changes.
  std::function<void()> onChange;
  // Called after every evaluation, whatever it decided: the profile guard follows the pinner's
  // releases and returns this way.
  std::function<void()> onEvaluated;

  // Listens to the default input and the device list, observes the process monitor, takes the
  // call state of the monitor's current list, and evaluates once. Starting again starts afresh:
  // the registrations are replaced and the fight record is cleared.
  void start();
  // The decision: what the default input should be, and the status that says so.
  void evaluate();
  // The process monitor's report: a call starting releases at once; a call ending pins again
  // after repinDelay unless a call starts before then.
  void processesChanged(const std::vector<AudioProcess>& processes);
  // Any settings change: evaluates again.
  void settingsChanged() { evaluate(); }

  const Status& status() const { return status_; }
  // The call state with the re-pin delay applied: stays true until the re-pin has run.
  bool inCall() const { return inCall_; }
  bool isFighting() const { return pacer_.policy().isFighting; }
  const PinPolicy& policy() const { return pacer_.policy(); }

  Override override() const { return override_; }
  // Sets the override; the caller evaluates afterwards.
  void setOverride(Override value) { override_ = value; }
  // Forgets every correction and ends a fight; the caller evaluates afterwards.
  void clearFightRecord() { pacer_.reset(); }

  // Whether the headphone microphone may be used now: by the override, else by the call mode and
  // the call state (with the re-pin delay applied).
  bool headphoneMicAllowed() const;

  // The microphone to pin to: the preferred input ("preferredInputUID") when it exists, has input
  // and is not Bluetooth; else the built-in microphone; else nothing.
  std::optional<AudioDevice> preferredMicrophone() const;

 private:
  // What the current default input asks for.
  struct InputCheck {
    std::optional<AudioDevice> current;
    bool needsCorrecting = false;
  };

  void decide();
  InputCheck checkDefaultInput() const;
  void correct(const AudioDevice& microphone, const InputCheck& input);
  void settle(const AudioDevice& microphone, const InputCheck& input);
  void setStatus(Status status);
  void stopObserving();

  Runtime& runtime_;
  Settings& settings_;
  AudioHardware& hardware_;
  AudioProcessMonitor& processes_;

  Status status_ = Status::idle();
  bool inCall_ = false;
  Override override_ = Override::none;
  CorrectionPacer pacer_;
  std::vector<std::unique_ptr<CA::Listener>> listeners_;
  std::optional<AudioProcessMonitor::ObserverKey> processObserver_;
  HeldWork repinWork_;
  int unanswered_ = 0;  // default-input writes the server has not answered yet
  Lifetime lifetime_;
};

// The status as the "agent.pinStatus" key shows it: "off", "idle", "releasedForCall",
// "releasedManually", "noMicrophone", "fighting", or "pinned:" followed by the microphone's name.
std::string describe(const InputPinner::Status& status);

}  // namespace wh
