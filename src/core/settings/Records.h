#pragma once
// The records that the agent and the settings program keep in the shared store, their raw texts
// and their JSON bodies. Both programs must agree on every key and value written here.

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace wh {

// The picture shown for a pair of headphones. Raw value = case name.
enum class DeviceIcon { earbuds, headphones, speaker };
inline constexpr std::array<DeviceIcon, 3> allDeviceIcons{DeviceIcon::earbuds, DeviceIcon::headphones,
                                                           DeviceIcon::speaker};
std::string_view rawValue(DeviceIcon icon);
// DeviceIcon.saved: the icon for a stored text. Names used by earlier versions ("airpods",
// "airpodsPro", "airpodsMax") map to today's cases; any other unknown text, and the empty text of a
// missing key, gives headphones.
DeviceIcon savedDeviceIcon(std::string_view text);
// DeviceIcon.guess: the icon for newly added headphones, from words in their name.
DeviceIcon guessDeviceIcon(std::string_view name);

// How music quality behaves during calls. Raw value = case name, except that `automatic` is
// stored as "auto" (a reserved word in C++).
enum class CallModeOption { automatic, alwaysHeadphoneMic, alwaysPinned };
inline constexpr std::array<CallModeOption, 3> allCallModeOptions{
    CallModeOption::automatic, CallModeOption::alwaysHeadphoneMic, CallModeOption::alwaysPinned};
std::string_view rawValue(CallModeOption option);
// The case whose raw value is exactly `text`, if any.
std::optional<CallModeOption> callModeOption(std::string_view text);

// What the play key does when nothing is playing. Raw value = case name.
enum class IdlePlayAction { ask, spotify, music, nothing };
inline constexpr std::array<IdlePlayAction, 4> allIdlePlayActions{IdlePlayAction::ask, IdlePlayAction::spotify,
                                                                  IdlePlayAction::music, IdlePlayAction::nothing};
std::string_view rawValue(IdlePlayAction action);
std::optional<IdlePlayAction> idlePlayAction(std::string_view text);

// A global hot key: the virtual key code and the modifier mask that the hot-key registration takes.
struct HotkeyCombo {
  std::uint32_t keyCode = 0;
  std::uint32_t modifiers = 0;

  friend bool operator==(const HotkeyCombo&, const HotkeyCombo&) = default;
};

// One remembered pair of headphones. `address` is kept in normal form (see Address.h); `icon`
// holds a DeviceIcon raw value.
struct DeviceSetting {
  std::string address;
  std::string name;
  std::string icon = std::string(rawValue(DeviceIcon::headphones));
  bool showInMenuBar = true;
  bool pinInput = true;
  bool connectOnWake = false;
  bool disconnectOnSleep = false;
  bool connectOnly = false;
  std::optional<HotkeyCombo> hotkey = std::nullopt;

  friend bool operator==(const DeviceSetting&, const DeviceSetting&) = default;
};

// The volume of one application: a linear gain (1.0 leaves it unchanged) and a mute switch.
struct AppVolumeSetting {
  float gain = 1.0F;
  bool muted = false;

  friend bool operator==(const AppVolumeSetting&, const AppVolumeSetting&) = default;
};

using AppVolumes = std::map<std::string, AppVolumeSetting>;

// JSON bodies. A list of devices is a JSON array of objects with the keys "address", "name",
// "icon", "showInMenuBar", "pinInput", "connectOnWake", "disconnectOnSleep", "connectOnly" and
// "hotkey" ({"keyCode", "modifiers"}); per-app volumes are a JSON object from app key to
// {"gain", "muted"}.
//
// Decoding is all or nothing: text that is not JSON of the right shape, a record without a
// required key, or any key holding a value of the wrong type gives no result at all; except that
// an unreadable per-app volume is left out and the other apps are kept. Missing
// optional keys (or null) take their defaults, unknown keys are ignored, and a stored icon is
// passed through savedDeviceIcon so that old and unknown texts are rewritten on the next save.
std::optional<std::vector<DeviceSetting>> decodeDevices(std::string_view json);
std::optional<AppVolumes> decodeAppVolumes(std::string_view json);

// Encoding writes every key of every record (a missing hotkey as null). It fails only for a gain
// that is not a finite number; text that is not valid UTF-8 is written with replacement characters.
std::optional<std::string> encodeDevices(const std::vector<DeviceSetting>& devices);
std::optional<std::string> encodeAppVolumes(const AppVolumes& volumes);

}  // namespace wh
