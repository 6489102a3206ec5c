#pragma once
// The server's automatic headset switch on PipeWire with WirePlumber 0.5 and later: the setting
// "bluetooth.autoswitch-to-headset-profile" in WirePlumber's "sm-settings" metadata, which
// WirePlumber follows at run time (a JSON boolean; a key that is not there means WirePlumber's
// default, on). Only the running value is changed, never the saved one ("persistent-sm-settings"),
// so a restart of WirePlumber, or of the computer, brings back the person's own setting.
// WirePlumber 0.4 has no such setting (nor the metadata): reads answer nothing there. Each call
// opens its own short connection to the PipeWire daemon and waits at most `timeout` seconds.
//
// EitherAutoSwitch puts it together with PulseAudio's module-bluetooth-policy: whichever the
// running server has.

#include <optional>
#include <string>

#include "core/audio/HeadsetAutoSwitch.h"
#include "platform/linux/audio/PulseBluetoothPolicy.h"

namespace wh::platform {

class WirePlumberAutoSwitch final : public HeadsetAutoSwitch {
 public:
  static constexpr const char* owner = "WirePlumber's bluetooth.autoswitch-to-headset-profile";
  static constexpr const char* metadataName = "sm-settings";
  static constexpr const char* key = "bluetooth.autoswitch-to-headset-profile";
  // Readings' settings start with this mark, followed by the JSON value (nothing: no key).
  static constexpr const char* settingMark = "wireplumber:";

  // `remote` as PipeWireConnection takes it; empty: libpipewire's own search.
  explicit WirePlumberAutoSwitch(std::string remote = {}, double timeout = 2.0)
      : remote_(std::move(remote)), timeout_(timeout) {}

  std::optional<AutoSwitchReading> read() override;
  WriteAnswer turnOff() override;
  WriteAnswer putBack(const std::string& setting) override;

 private:
  // Sets the key to `value` (nothing: removes it) and checks that the metadata then holds it.
  WriteAnswer write(const std::optional<std::string>& value);

  std::string remote_;
  double timeout_;
};

// WirePlumber's setting where the server has it, else PulseAudio's module; a setting is put back
// to the one that read it.
class EitherAutoSwitch final : public HeadsetAutoSwitch {
 public:
  EitherAutoSwitch(WirePlumberAutoSwitch& wirePlumber, PulseBluetoothPolicy& pulse)
      : wirePlumber_(wirePlumber), pulse_(pulse) {}

  std::optional<AutoSwitchReading> read() override;
  WriteAnswer turnOff() override;
  WriteAnswer putBack(const std::string& setting) override;

 private:
  WirePlumberAutoSwitch& wirePlumber_;
  PulseBluetoothPolicy& pulse_;
  HeadsetAutoSwitch* lastRead_ = nullptr;
};

}  // namespace wh::platform
