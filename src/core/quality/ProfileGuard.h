#pragma once
// Keeps remembered headphones in their music profile where pinning the default input is not
// enough: some sound servers switch every Bluetooth card to its headset profile as soon as a
// call-like program records, whatever it records from (WirePlumber 0.4's Bluetooth policy,
// PulseAudio's module-bluetooth-policy). A switch to a headset profile that no recording from the
// headphones' own microphone explains is undone: the card goes back to the music profile it had,
// or to the best one it offers.
//
// It follows the input pinner's rules and decisions: it holds only while "pinInput" is on, lets go
// whenever the pinner lets the headphone microphone be used (calls by the call mode, the override;
// after a call it returns when the pinner does, 3 s later), stays away while the pinner fights,
// and paces its own corrections the pinner's way (CorrectionPacer). Everything runs on the main
// thread.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/audio/AudioHardware.h"
#include "core/audio/AudioProcesses.h"
#include "core/audio/CoreAudio.h"
#include "core/quality/CorrectionPacer.h"
#include "core/quality/InputPinner.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh {

class ProfileGuard {
 public:
  enum class Status {
    off,       // "pinInput" is off
    idle,      // no card of remembered headphones that pin their input is present
    holding,   // every such card is in a music profile, or a recording from its microphone explains why not
    released,  // the pinner lets the headphone microphone be used, or fights for the input itself
    fighting,  // another program keeps switching the headphones back; the guard has paused
  };

  // Full quality starts here; below it the headphones are in call quality.
  static constexpr double fullQualityRate = 44100.0;

  ProfileGuard(Runtime& runtime, Settings& settings, AudioHardware& hardware, AudioProcessMonitor& processes,
               InputPinner& pinner);
  ~ProfileGuard();
  ProfileGuard(const ProfileGuard&) = delete;
  ProfileGuard& operator=(const ProfileGuard&) = delete;

  // Called whenever `status` or `outputQuality` changes.
  std::function<void()> onChange;

  // Listens to the cards, the devices and the default output, observes the process monitor,
  // follows every evaluation of the pinner (its onEvaluated slot), and evaluates once. Starting
  // again starts afresh.
  void start();
  void evaluate();

  Status status() const { return status_; }
  bool isFighting() const { return pacer_.policy().isFighting; }
  // Forgets every correction and ends a fight; the caller evaluates afterwards.
  void clearFightRecord() { pacer_.reset(); }
  // The default output's name, rate and quality ("WH-1000XM4: 44.1 kHz, full quality") while it
  // is Bluetooth and its rate can be read; empty otherwise.
  const std::string& outputQuality() const { return outputQuality_; }

 private:
  // The remembered headphones' card, and what they are called.
  struct Guarded {
    AudioCard card;
    std::string name;
    std::string address;
  };

  std::vector<Guarded> guardedCards() const;
  bool recordedFrom(const std::string& address) const;
  std::optional<std::string> musicProfileFor(const AudioCard& card) const;
  // Asks the server to move the card back, unless it has to wait or give up (the status says which).
  void moveBack(const Guarded& guarded);
  void setState(Status status);
  void stopObserving();

  Settings& settings_;
  AudioHardware& hardware_;
  AudioProcessMonitor& processes_;
  InputPinner& pinner_;

  Status status_ = Status::idle;
  std::string outputQuality_;
  bool released_ = false;
  std::map<std::string, std::string> musicProfiles_;  // card name -> the music profile it last had
  CorrectionPacer pacer_;
  int unanswered_ = 0;  // profile writes the server has not answered yet
  std::vector<std::unique_ptr<CA::Listener>> listeners_;
  std::optional<AudioProcessMonitor::ObserverKey> processObserver_;
  Lifetime lifetime_;
};

// The status as the "agent.profileGuard" key shows it: "off", "idle", "holding", "released", "fighting".
std::string describe(ProfileGuard::Status status);
// "44.1 kHz, full quality", "16 kHz, call quality".
std::string qualityText(double rate);

}  // namespace wh
