#pragma once
// The server's automatic headset switch on PulseAudio: module-bluetooth-policy, whose `auto_switch`
// argument (0 off; 1, the default, for phone-role recordings; 2 also for recordings without a role;
// the words true/false too) can only be changed by loading the module again with another argument.
// Each call opens its own short connection and waits for the server, at most `timeout` seconds.
// PipeWire's pulse server has no such module: reads answer nothing there.

#include <optional>
#include <string>

#include "core/audio/HeadsetAutoSwitch.h"

namespace wh::platform {

class PulseBluetoothPolicy final : public HeadsetAutoSwitch {
 public:
  static constexpr const char* owner = "PulseAudio's module-bluetooth-policy";

  // `server` as for PulseAudioHardware ("unix:/path/native"); empty: libpulse's own search.
  explicit PulseBluetoothPolicy(std::string server = {}, double timeout = 2.0)
      : server_(std::move(server)), timeout_(timeout) {}

  std::optional<AutoSwitchReading> read() override;
  WriteAnswer turnOff() override;
  WriteAnswer putBack(const std::string& setting) override;

  // Whether an argument text leaves automatic switching on, and the same text with it off.
  static bool switchesOn(const std::string& argument);
  static std::string withSwitchOff(const std::string& argument);

 private:
  // Loads the module again with `argument` in place of the one it has (or loads it when it is not).
  WriteAnswer reload(const std::string& argument);

  std::string server_;
  double timeout_;
};

}  // namespace wh::platform
