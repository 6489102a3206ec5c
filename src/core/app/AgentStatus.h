#pragma once
// The agent's status as the settings program sees it: "agent." keys in the shared store and a
// status signal when any of them changed; and the commands the settings program sends.

#include <functional>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "core/app/AccessibilityCheck.h"
#include "core/app/AgentChannel.h"
#include "core/app/AppHost.h"
#include "core/app/Services.h"
#include "core/app/StartupChores.h"
#include "core/bluetooth/BluetoothAccess.h"
#include "core/notify/NotificationCenter.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh {

namespace StatusKeys {
inline constexpr char bluetoothAccess[] = "agent.bluetoothAccess";  // "allowed", "denied", "undetermined"
inline constexpr char bluetooth[] = "agent.bluetooth";              // address -> phase text
inline constexpr char bluetoothAdapter[] = "agent.bluetoothAdapter";  // "unknown", "noService", "noAdapter", "off", "on"
inline constexpr char battery[] = "agent.battery";                  // address -> levels (fresh readings only)
inline constexpr char accessibility[] = "agent.accessibility";      // bool
inline constexpr char paired[] = "agent.paired";                    // [{"address", "name"}]
inline constexpr char pinStatus[] = "agent.pinStatus";              // the input pinner's status text
inline constexpr char inCall[] = "agent.inCall";                    // bool
inline constexpr char launchAtLogin[] = "agent.launchAtLogin";      // bool
inline constexpr char launchAtLoginNeedsApproval[] = "agent.launchAtLoginNeedsApproval";  // bool
inline constexpr char profileGuard[] = "agent.profileGuard";        // the profile guard's status text
inline constexpr char outputQuality[] = "agent.outputQuality";      // "<name>: 44.1 kHz, full quality", or ""
inline constexpr char taps[] = "agent.taps";                        // app id -> "mute" or "gain"
inline constexpr char volumeApps[] = "agent.volumeApps";            // [{"bundleID", "name", "icon", "gain", "muted", "playing"}]
inline constexpr char volumeProblem[] = "agent.volumeProblem";      // text, empty when none
inline constexpr char mediaKeys[] = "agent.mediaKeys";              // "off", "needsAccessibility", "running"
inline constexpr char mediaKeysTarget[] = "agent.mediaKeysTarget";  // application id, "" when none
inline constexpr char trayProblem[] = "agent.trayProblem";          // why the tray icon is not shown, "" when it is
}  // namespace StatusKeys

// The settings program's question "what is the status now?": the agent answers with the status
// signal at once, whether or not anything changed, so that a silent agent can be told apart from
// one with nothing new to say.
inline constexpr char statusCommand[] = "status";

class AgentStatus {
 public:
  // What commands may ask of the rest of the agent.
  struct Actions {
    Work startBluetooth;                                 // start the Bluetooth manager unless started
    std::function<void(bool onboarding)> openSettings;  // open the settings program (absent: ignored)
    Work openBluetoothSettings;                          // show where Bluetooth access is granted
    Work showKeyAccess;                                  // show how key access is granted
  };

  static constexpr double onboardingWatchInterval = 3.0;
  // Battery readings older than this are not published.
  static constexpr double batteryMaxAge = 600.0;

  AgentStatus(Runtime& runtime, Settings& settings, Services& services, BluetoothAccess& access,
              AgentChannel& channel, AppHost& host, LoginItem& loginItem);
  AgentStatus(const AgentStatus&) = delete;
  AgentStatus& operator=(const AgentStatus&) = delete;

  // Writes every status key that differs from the stored one; signals when any did.
  void publish();
  // Writes the paired headphones when they differ from the stored list; signals when they did.
  void publishPaired();
  // Starts handling commands.
  void listen(Actions actions);
  // Where the tray's state comes from (none: no tray is made, nothing to say).
  void setTrayProblem(std::function<std::string()> problem) { trayProblem_ = std::move(problem); }
  // One command, as the channel delivers it.
  void handle(const std::string& command, const nlohmann::json& userInfo);

  // The accessibility answer that the status publishes, asked off the main thread.
  AccessibilityCheck& accessibility() { return accessibility_; }
  const AccessibilityCheck& accessibility() const { return accessibility_; }

  static const char* accessText(BluetoothAuthorization authorization);
  // "agent.bluetoothAdapter"'s texts, both ways (an unknown text reads as unknown).
  static const char* adapterText(BluetoothAdapterState state);
  static BluetoothAdapterState adapterState(const std::string& text);
  static nlohmann::json batteryJson(const BatteryLevels& levels);
  static std::string volumeProblemText(const AppVolumeController::Problem& problem);

 private:
  // Adds the change to `changes` when the stored value differs.
  void put(std::vector<std::pair<std::string, std::optional<StoreValue>>>& changes, const std::string& key,
           StoreValue value) const;
  // Stores the changes; signals when there were any, or always when `signalAnyway`.
  void commit(std::vector<std::pair<std::string, std::optional<StoreValue>>> changes, bool signalAnyway = false);
  void publish(bool signalAnyway);
  void onboardingVisible(bool visible);

  Runtime& runtime_;
  Settings& settings_;
  Services& services_;
  BluetoothAccess& access_;
  AgentChannel& channel_;
  AccessibilityCheck accessibility_;
  LoginItem& loginItem_;
  Actions actions_;
  std::unique_ptr<Registration> listening_;
  std::unique_ptr<RepeatingTimer> onboardingWatch_;
  std::function<std::string()> trayProblem_;
  Lifetime lifetime_;
};

}  // namespace wh
