#pragma once
// Works with the sound server's Bluetooth policy instead of against it: while music quality is
// kept ("pinInput" on), the server's automatic switch to the headset profile is turned off through
// the server's own setting, and the profile guard moves the card for calls itself. The person's
// setting is put back when "pinInput" goes off and at exit. What it was is kept in the agent's
// state store before it is changed, so that after a run that ended without putting it back (a
// crash), the next start knows it: the record says the switch is off by the agent, and the
// person's setting is what goes back. The server is asked on the "wrenhaven.autoswitch" queue; what
// it found comes back to the main thread.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/audio/HeadsetAutoSwitch.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh {

class AutoSwitchKeeper {
 public:
  // The state store key of the record: {"owner": ..., "setting": ...}.
  static constexpr const char* recordKey = "autoSwitch.personsSetting";

  static constexpr const char* queueLabel = "wrenhaven.autoswitch";

  // The state store is written from the queue.
  AutoSwitchKeeper(Runtime& runtime, Settings& settings, HeadsetAutoSwitch& server, SettingsStore& state);

  // Called when what it reports (offByAgent, describe) changes.
  std::function<void()> onChange;

  // Starts keeping: evaluates once. Call evaluate again on settings changes and whenever the server
  // may have been restarted or its switch reloaded (a card appearing). Evaluations asked for while
  // one is on its way make one more after it.
  void start();
  void evaluate();
  // Puts the person's setting back, and returns once it is (at exit: it waits for the queue).
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
  // What one evaluation found and did, and the lines to log for it (true: an error).
  struct Outcome {
    bool offByAgent = false;
    std::string description;
    std::vector<std::pair<bool, std::string>> said;
  };
  // One evaluation, on the queue: `keeping` whether the switch is to be off, `why` what puts it back.
  static Outcome decide(HeadsetAutoSwitch& server, SettingsStore& state, bool keeping, const std::string& why);
  static std::optional<Record> record(const SettingsStore& state);
  static std::string described(const std::optional<AutoSwitchReading>& reading, const std::optional<Record>& kept);
  static Outcome keep(HeadsetAutoSwitch& server, SettingsStore& state, const AutoSwitchReading& reading);
  static Outcome putBack(HeadsetAutoSwitch& server, SettingsStore& state, const Record& record, const std::string& why);
  void settle(Outcome outcome);

  Runtime& runtime_;
  Settings& settings_;
  HeadsetAutoSwitch& server_;
  SettingsStore& state_;
  std::shared_ptr<SerialQueue> queue_;
  bool running_ = false;
  bool onItsWay_ = false, again_ = false;
  bool offByAgent_ = false;
  std::string description_ = "none";
  Lifetime lifetime_;
};

}  // namespace wh
