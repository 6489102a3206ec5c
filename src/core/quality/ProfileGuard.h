#pragma once
// Keeps remembered headphones in their music profile where pinning the default input is not
// enough: some sound servers switch every Bluetooth card to its headset profile as soon as a
// call-like program records, whatever it records from (WirePlumber 0.4's Bluetooth policy,
// PulseAudio's module-bluetooth-policy). A switch to a headset profile that a recording explains,
// but not one from the headphones' own microphone, is undone: the card goes back to the music
// profile it had, or to the best one it offers. A switch that no recording explains is a person's
// choice: it is left alone until the headphones reconnect.
//
// The server's policy restores the card when the last call-like recording ends, and WirePlumber
// 0.4 remembers the profile it finds at that moment as the headset profile for next time. So once
// nothing records any more, a card the guard moved back gets the headset profile the policy chose
// again, and the policy's restore step, 2 s later, remembers a headset profile and brings the music
// profile back itself (restoreWait later the guard does, if the policy did not).
//
// It follows the input pinner's rules and decisions: it holds only while "pinInput" is on, lets go
// whenever the pinner lets the headphone microphone be used (calls by the call mode, the override;
// after a call it returns when the pinner does, 3 s later) or has no other microphone, stays away
// while the pinner fights, and paces its own corrections the pinner's way (CorrectionPacer).
// Everything runs on the main thread.

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
    holding,   // every such card is in a music profile, or its headset profile is explained (a recording
               // from its microphone, a person's choice, the policy's restore awaited)
    released,  // the pinner lets the headphone microphone be used, has no other one, or fights for the input
    fighting,  // another program keeps switching the headphones back; the guard has paused
  };

  // Full quality starts here; below it the headphones are in call quality.
  static constexpr double fullQualityRate = 44100.0;
  // How long a card given its headset profile back waits for the policy's restore step (which
  // comes 2 s after the last call-like recording ends) before the guard moves it back itself.
  static constexpr double restoreWait = 3.0;

  ProfileGuard(Runtime& runtime, Settings& settings, AudioHardware& hardware, AudioProcessMonitor& processes,
               InputPinner& pinner);
  ~ProfileGuard();
  ProfileGuard(const ProfileGuard&) = delete;
  ProfileGuard& operator=(const ProfileGuard&) = delete;

  // Called whenever `status` or `outputQuality` changes.
  std::function<void()> onChange;
  // Whether the server's own automatic switch is off by the agent's doing (AutoSwitchKeeper): then
  // the guard itself moves a card in a music profile to its headset profile while the pinner lets
  // the headphone microphone be used (a call, the call mode, the override, no other microphone),
  // and back when that ends.
  std::function<bool()> movesCardsForCalls;

  // Listens to the cards, the devices, the default output and the recordings, observes the process
  // monitor, follows every evaluation of the pinner (its onEvaluated slot), and evaluates once.
  // Starting again starts afresh.
  void start();
  void evaluate();

  Status status() const { return status_; }
  bool isFighting() const { return pacer_.policy().isFighting; }
  // Forgets every correction and ends a fight; the caller evaluates afterwards.
  void clearFightRecord() { pacer_.reset(); }
  // The default output's name, rate and quality ("WH-1000XM4: 44.1 kHz, full quality") while it
  // is Bluetooth and its rate can be read; empty otherwise.
  const std::string& outputQuality() const { return outputQuality_; }
  // What the guard last did about the card of that name and why ("moved back to its music profile:
  // a recording that is not a call switched it"); empty when it has done nothing since the card came.
  std::string lastAction(const std::string& cardName) const;

 private:
  // The remembered headphones' card, and what they are called.
  struct Guarded {
    AudioCard card;
    std::string name;
    std::string address;
  };

  // What the guard knows of one card while it stays connected.
  struct Memory {
    std::string seenProfile;   // the active profile the last evaluation found
    std::string musicProfile;  // the music profile it last had
    bool chosenByHand = false;  // a person picked the headset profile: left alone until reconnect
    // The headset profile the server's policy switched to and the guard undid: the card gets it
    // back when nothing records any more, so that the policy's restore step remembers it.
    std::string policyHeadset;
    // Since when the card waits in a headset profile for the policy's restore step.
    std::optional<double> awaitingRestoreSince;
    bool recording = false;  // something recorded at the last look while waiting
    std::string moveBackWhy;  // a move back decided and not yet accepted by the server, and why
    std::string releaseNoted;  // the release whose reason lastAction already tells
    bool movedForCall = false;  // the guard moved it to its headset profile for a call
    std::string lastAction;
  };

  std::vector<Guarded> guardedCards() const;
  bool recordedFrom(const std::string& address) const;
  bool anyRecording() const;
  std::optional<std::string> musicProfileFor(const AudioCard& card, const Memory& memory) const;
  static std::optional<std::string> headsetProfileFor(const AudioCard& card);
  // Takes in the card's profile; answers whether it changed since the last look.
  bool observe(const AudioCard& card, Memory& memory);
  // The card's decision while holding, and while released; false when a write is on its way and
  // the evaluation ends.
  bool decide(const Guarded& guarded, Memory& memory, bool& holding);
  bool decideReleased(const Guarded& guarded, Memory& memory);
  // Sets the status to released for that reason; answers true.
  bool released(const std::string& why);
  void awaitRestore(Memory& memory, bool recording);
  static void note(Memory& memory, std::string action);
  // Asks the server to move the card back, unless it has to wait or give up (the status says which).
  void moveBack(const Guarded& guarded, Memory& memory, const std::string& why);
  // Gives the card the headset profile the policy chose back; the fight record is not touched.
  void handBack(const Guarded& guarded, Memory& memory);
  void write(const Guarded& guarded, const std::string& profile, std::string accepted, std::string refused);
  void setState(Status status);
  void stopObserving();

  Runtime& runtime_;
  Settings& settings_;
  AudioHardware& hardware_;
  AudioProcessMonitor& processes_;
  InputPinner& pinner_;

  Status status_ = Status::idle;
  std::string outputQuality_;
  bool released_ = false;
  std::map<std::string, Memory> memory_;  // by card name; forgotten when the card goes
  CorrectionPacer pacer_;
  HeldWork restoreCheck_;  // the end of restoreWait for a card waiting for the policy's restore
  std::optional<double> nextCheck_;  // seconds to the first such end, found by this evaluation
  int unanswered_ = 0;  // profile writes the server has not answered yet
  std::vector<std::unique_ptr<CA::Listener>> listeners_;
  std::optional<AudioProcessMonitor::ObserverKey> processObserver_;
  Lifetime lifetime_;
  std::string releasedWhy_;
};

// The status as the "agent.profileGuard" key shows it: "off", "idle", "holding", "released", "fighting".
std::string describe(ProfileGuard::Status status);
// "44.1 kHz, full quality", "16 kHz, call quality".
std::string qualityText(double rate);

}  // namespace wh
