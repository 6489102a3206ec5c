#pragma once
// The facade over the shared settings store, and the names that the agent and the settings
// program share. `Settings` keeps nothing of its own: every getter reads the store at the moment
// of the call, so a value written by the other program is seen on the next read.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/notify/NotificationCenter.h"
#include "core/settings/Records.h"
#include "core/settings/StoreValue.h"

namespace wh {

// What both programs compile: the store's name, the two cross-program notification names and
// the test whether the running program is the agent.
namespace Shared {
inline constexpr char domain[] = "com.quintelbarrows.wrenhaven";
// Settings program to agent.
inline constexpr char commandName[] = "com.quintelbarrows.wrenhaven.command";
// Agent to settings program.
inline constexpr char statusName[] = "com.quintelbarrows.wrenhaven.status";

// True exactly when the running program's identifier is the store's domain; a program without an
// identifier is not the agent.
bool isAgent(std::optional<std::string_view> bundleIdentifier);
}  // namespace Shared

// Every key the two programs keep in the store (the "agent." status keys belong to the status
// channel).
namespace Keys {
inline constexpr char devices[] = "devices";                  // data: JSON array of DeviceSetting
inline constexpr char appVolumes[] = "appVolumes";            // data: JSON object of AppVolumeSetting
inline constexpr char callMode[] = "callMode";                // string: CallModeOption raw value
inline constexpr char mediaKeysIdlePlay[] = "mediaKeys.idlePlay";  // string: IdlePlayAction raw value
inline constexpr char mediaKeysEnabled[] = "mediaKeys.enabled";    // bool, default false
inline constexpr char mediaKeysPaused[] = "mediaKeys.paused";      // bool, default false
inline constexpr char pinInput[] = "pinInput";                     // bool, default true
inline constexpr char preferredInputUID[] = "preferredInputUID";   // string, absent: built-in microphone
inline constexpr char meetingApps[] = "meetingApps";               // string array, replaces the built-in list
inline constexpr char hideMenuIcon[] = "hideMenuIcon";             // bool, default false
inline constexpr char onboardingDone[] = "onboardingDone";         // bool, default false
inline constexpr char onboardingStep[] = "onboardingStep";         // string: the guide's open step, absent: welcome
inline constexpr char audioCaptureVerified[] = "audioCaptureVerified";  // bool, default false
}  // namespace Keys

// Sends a command to the running agent (the settings program's side of the command channel).
class CommandSender {
 public:
  virtual ~CommandSender() = default;
  virtual void send(const std::string& command, const nlohmann::json& userInfo) = 0;
};

class Settings {
 public:
  // Posted in-process after every change, with the changed key's text (often empty) as object.
  static constexpr char changedName[] = "Wrenhaven.settingsChanged";

  // `commands` is used only when this is not the agent; it may be null.
  Settings(SettingsStore& store, NotificationCenter& notifications, bool isAgent, CommandSender* commands);

  // The boolean under `key`; `defaultValue` when the key is absent or holds anything else.
  bool boolValue(const std::string& key, bool defaultValue) const;

  // Remembered headphones in the user's order; empty when absent or when any record is unreadable.
  std::vector<DeviceSetting> devices() const;
  void setDevices(const std::vector<DeviceSetting>& devices);

  // Per-app volumes by app key; untouched apps (gain at least 0.999, not muted) are not stored.
  AppVolumes appVolumes() const;
  void setAppVolumes(const AppVolumes& volumes);

  CallModeOption callMode() const;
  void setCallMode(CallModeOption option);

  IdlePlayAction idlePlay() const;
  void setIdlePlay(IdlePlayAction action);

  // Remembers newly paired headphones with default flags and a guessed icon; does nothing (no
  // write, no notification) when headphones with that address are already remembered.
  void addDevice(std::string_view address, const std::string& name);
  // Forgets the headphones with that address (and writes the list even when none matched).
  void removeDevice(std::string_view address);

  // The change step after every write: the in-process notification, and when the settings
  // program wrote, the "reload" command to the agent.
  void changed(const std::string& key);

  SettingsStore& store() const { return store_; }

 private:
  std::optional<std::string> stringValue(const char* key) const;

  SettingsStore& store_;
  NotificationCenter& notifications_;
  bool isAgent_;
  CommandSender* commands_;
};

}  // namespace wh
