#pragma once
// The port to the sound server's own switch that moves Bluetooth headphones to their headset
// profile when a call-like program records: PulseAudio's module-bluetooth-policy (its `auto_switch`
// argument), WirePlumber's bluetooth.autoswitch-to-headset-profile setting. Calls wait for the server's answer, with a time-out: they are made on a serial queue
// (never the main thread), one at a time. Tests use a double.

#include <optional>
#include <string>

#include "core/audio/AudioHardware.h"

namespace wh {

struct AutoSwitchReading {
  std::string owner;    // what the person would look for: "PulseAudio's module-bluetooth-policy", ...
  bool on = false;      // whether the server switches by itself now
  std::string setting;  // the setting as the server has it, to be put back as it was ("auto_switch=2")
  bool operator==(const AutoSwitchReading&) const = default;
};

class HeadsetAutoSwitch {
 public:
  virtual ~HeadsetAutoSwitch() = default;
  // Nothing when the server has no such switch or cannot be reached.
  virtual std::optional<AutoSwitchReading> read() = 0;
  // Turns automatic switching off and leaves everything else as it was.
  virtual WriteAnswer turnOff() = 0;
  // Puts back a setting read earlier.
  virtual WriteAnswer putBack(const std::string& setting) = 0;
};

}  // namespace wh
