#pragma once
// Works with the sound server's Bluetooth policy instead of against it: while music quality is
// kept ("pinInput" on), the server's automatic switch to the headset profile is turned off through
// the server's own setting, and the profile guard moves the card for calls itself. The person's
// setting is put back when "pinInput" goes off and at exit. What it was is kept in the agent's
// state store before it is changed, so that after a run that ended without putting it back (a
// crash), the next start knows it: the record says the switch is off by the agent, and the
// person's setting is what goes back.

#include <functional>
#include <optional>
#include <string>

#include "core/audio/HeadsetAutoSwitch.h"
#include "core/settings/Settings.h"

namespace wh {

class AutoSwitchKeeper {
 public:
  // The state store key of the record: {"owner": ..., "setting": ...}.
  static constexpr const char* recordKey = "autoSwitch.personsSetting";

  AutoSwitchKeeper(Settings& settings, HeadsetAutoSwitch& server, SettingsStore& state)
      : settings_(settings), server_(server), state_(state) {}

  // Called when what it reports (offByAgent, describe) changes.
  std::function<void()> onChange;

  // Starts keeping: evaluates once. Call evaluate again on settings changes and whenever the server
  // may have been restarted or its switch reloaded (a card appearing).
  void start();
  void evaluate();
  // Puts the person's setting back (at exit).
  void stop();

  // The agent has turned automatic switching off: the guard moves cards for calls itself.
  bool offByAgent() const { return offByAgent_; }
  // For the diagnostics: "none", or the owner, "on" or "off", and who set it:
  // "PulseAudio's module-bluetooth-policy: off, by Wrenhaven (the person's setting: auto_switch=1)".
  const std::string& describe() const { return description_; }
  // The same, read now from the server and the record without changing anything (for "--diagnose",
  // where the running agent is another process).
  std::string lookNow() const;

 private:
  struct Record {
    std::string owner, setting;
  };
  std::optional<Record> record() const;
  static std::string described(const std::optional<AutoSwitchReading>& reading, const std::optional<Record>& kept);
  void keep(const AutoSwitchReading& reading);
  void putBack(const Record& record, const std::string& when);
  void report(bool offByAgent, std::string description);

  Settings& settings_;
  HeadsetAutoSwitch& server_;
  SettingsStore& state_;
  bool running_ = false;
  bool offByAgent_ = false;
  std::string description_ = "none";
};

}  // namespace wh
