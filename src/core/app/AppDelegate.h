#pragma once
// The agent's start-up order and wiring: it connects the components' callbacks, coalesces the
// refresh that every component's change asks for, polls battery levels, and reacts to settings
// changes, commands and the user opening the program again.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/app/AgentStatus.h"
#include "core/app/AppHost.h"
#include "core/app/BuildInfo.h"
#include "core/app/Services.h"
#include "core/app/StartupChores.h"
#include "core/audio/AudioProcesses.h"
#include "core/bluetooth/BluetoothAccess.h"
#include "core/hotkeys/Hotkeys.h"
#include "core/notify/NotificationCenter.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"
#include "core/ui/UserInterface.h"

namespace wh {

class AppDelegate {
 public:
  static constexpr double batteryInterval = 300.0;
  static constexpr double batteryTolerance = 60.0;
  static constexpr double batteryAfterConnect = 3.0;
  static constexpr double repairReconnectDelay = 2.0;
  // How long after the start a desktop's tray may take to take the icon, before the settings
  // program is opened to say that there is none.
  static constexpr double trayGrace = 10.0;

  AppDelegate(Runtime& runtime, Settings& settings, NotificationCenter& notifications, AppHost& host,
              BuildInfo build, Services& services, BluetoothAccess& access, AgentStatus& status,
              AudioProcessMonitor& processes, StartupChores chores);
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  // The tray that launching builds (the fonts, the main item, the headphones' items); none where
  // the agent runs without a display. Set before launching.
  void setUserInterface(ui::UserInterface* userInterface) { userInterface_ = userInterface; }
  // The global hotkeys the headphones' records ask for; none: no hotkeys. Set before launching.
  void setHotkeys(Hotkeys* hotkeys) { hotkeys_ = hotkeys; }

  void applicationDidFinishLaunching();
  // The agent quits (Quit, or a stop signal): every application's sound is given back before the
  // process ends. The log is flushed after this.
  void applicationWillTerminate();
  // The user opened the program while it runs. Answers true (handled).
  bool applicationShouldHandleReopen();

  // The refresh action: asks for one refresh on the next main-queue turn, however often it is
  // called before that turn. Safe to keep after the delegate is gone (it then does nothing).
  const std::function<void()>& refreshAction() const { return refreshAction_; }
  // What a refresh redraws before it publishes the status, in the order added.
  void addRefreshStep(std::function<void()> step) { refreshSteps_.push_back(std::move(step)); }

  // The first log line of a running agent.
  std::string startLine() const;
  // The remembered headphones as (address, name), all of them or only the connected ones.
  std::vector<std::pair<std::string, std::string>> batteryDevices(bool connectedOnly) const;
  // Registers the hotkeys of the headphones' records again, unless they are those registered now.
  void registerHotkeys();

 private:
  void refresh();
  void settingsChanged(const std::string& object);
  void startBluetooth();
  void connected(const std::string& address, ConnectReason reason);
  void repair(const std::string& address, std::function<void(bool)> completion);
  void recordHotkey(const DeviceSetting& device);

  Runtime& runtime_;
  Settings& settings_;
  NotificationCenter& notifications_;
  AppHost& host_;
  BuildInfo build_;
  Services& services_;
  BluetoothAccess& access_;
  AgentStatus& status_;
  AudioProcessMonitor& processes_;
  StartupChores chores_;
  bool refreshPending_ = false;
  std::vector<std::function<void()>> refreshSteps_;
  std::function<void()> refreshAction_;
  std::vector<NotificationCenter::Observation> observations_;
  std::unique_ptr<RepeatingTimer> batteryTimer_;
  ui::UserInterface* userInterface_ = nullptr;
  std::unique_ptr<ui::StatusMenuController> statusMenu_;
  std::unique_ptr<ui::DeviceStatusItems> deviceItems_;
  Hotkeys* hotkeys_ = nullptr;
  std::map<std::string, HotkeyCombo> registeredHotkeys_;
  Lifetime lifetime_;
};

}  // namespace wh
