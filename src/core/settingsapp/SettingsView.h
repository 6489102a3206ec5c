#pragma once
// What the settings program's pages show, read from the shared store at one moment: the user's
// settings through `Settings`, and the agent's "agent." status keys. A status key that is missing
// or holds the wrong type reads as unknown; nothing here throws.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/quality/MicrophoneChoices.h"
#include "core/settings/Settings.h"
#include "core/texts/PlatformTexts.h"

namespace wh::settingsapp {

// Shown wherever a status key is missing or unreadable.
inline constexpr char unknownText[] = "Not known yet";
// Shown for headphones without a fresh battery reading.
inline constexpr char noBatteryText[] = "No reading";

struct HeadphonesRow {
  DeviceSetting setting;
  std::string status;   // "Not connected", "Connecting…", "Connected", "Disconnecting…", the failure, or unknownText
  std::string battery;  // "80%", "L 80% · R 75% · case 40%", or noBatteryText
};

struct PairedChoice {
  std::string address;
  std::string name;
};

struct VolumeRow {
  std::string appID;
  std::string name;
  float gain = 1.0F;
  bool muted = false;
  bool playing = false;
};

struct SettingsView {
  // Headphones.
  std::vector<HeadphonesRow> headphones;
  std::optional<std::vector<PairedChoice>> addable;  // paired but not remembered; absent: unknown
  std::string bluetoothAccess;                       // "allowed", "denied", "undetermined" or unknownText
  std::optional<texts::BluetoothProblem> bluetoothProblem;  // what stops Bluetooth, as the agent sees it
  std::string trayProblem;  // why the agent's tray icon is not shown; empty while it is (or unknown)
  // Music quality.
  bool pinInput = true;
  CallModeOption callMode = CallModeOption::automatic;
  std::optional<std::vector<MicrophoneChoice>> microphones;  // absent: the computer's inputs are not read yet
  std::string pinStatus;      // the panel's line for the pinner's status, or unknownText
  std::string outputQuality;  // empty: the output is not Bluetooth
  std::vector<std::string> meetingApps;  // empty: the built-in list
  // Media keys.
  bool mediaKeysEnabled = false;
  bool mediaKeysPaused = false;
  IdlePlayAction idlePlay = IdlePlayAction::ask;
  std::string mediaKeysState;  // the panel's line for the media keys, or unknownText
  bool mediaKeysNeedAccess = false;
  // Volume by app.
  std::optional<std::vector<VolumeRow>> volumeApps;  // absent: unknown
  // The volume problem as the panel shows it; both empty when there is none.
  std::string volumeProblemTitle;
  std::string volumeProblem;
  // General.
  std::optional<bool> launchAtLogin;  // absent: unknown
  bool showTrayIcon = true;
  bool onboardingDone = false;
};

// `devices`: the sound server's devices, once they have been read.
SettingsView readView(const Settings& settings, const std::optional<std::vector<AudioDevice>>& devices = std::nullopt);

// The battery text for the levels object the agent publishes for one pair of headphones.
std::string batteryText(const nlohmann::json& levels);

// Writes one boolean setting and announces it.
void setFlag(Settings& settings, const std::string& key, bool value);
// Changes the remembered headphones with that address (nothing when none is remembered).
void editDevice(Settings& settings, const std::string& address, const std::function<void(DeviceSetting&)>& edit);
// Sets one application's volume, keeping the others.
void setAppVolume(Settings& settings, const std::string& appID, AppVolumeSetting volume);

}  // namespace wh::settingsapp
