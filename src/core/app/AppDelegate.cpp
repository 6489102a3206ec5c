#include "core/app/AppDelegate.h"

#include "core/log/Log.h"
#include "core/settings/Address.h"
#include "core/ui/DeviceMenu.h"

namespace wh {

AppDelegate::AppDelegate(Runtime& runtime, Settings& settings, NotificationCenter& notifications, AppHost& host,
                         BuildInfo build, Services& services, BluetoothAccess& access, AgentStatus& status,
                         AudioProcessMonitor& processes, StartupChores chores)
    : runtime_(runtime),
      settings_(settings),
      notifications_(notifications),
      host_(host),
      build_(std::move(build)),
      services_(services),
      access_(access),
      status_(status),
      processes_(processes),
      chores_(chores) {
  refreshAction_ = [this, alive = lifetime_.weak()] {
    if (!alive.alive() || refreshPending_) return;
    refreshPending_ = true;
    runtime_.main().post([this, alive] {
      if (alive.alive()) refresh();
    });
  };
}

void AppDelegate::refresh() {
  refreshPending_ = false;
  for (const auto& step : refreshSteps_) step();
  status_.publish();
}

void AppDelegate::applicationDidFinishLaunching() {
  // The test runner and another instance were ruled out before anything was built (LaunchGate).
  chores_.move.offerIfNeeded();  // the question waits beside the services
  if (userInterface_ != nullptr) {
    userInterface_->registerFonts();
    statusMenu_ = userInterface_->makeStatusMenu();
    statusMenu_->openSettings = lifetime_.guard([this] { chores_.settings.open(false); });
    statusMenu_->openGuide = lifetime_.guard([this] { chores_.settings.open(true); });
    deviceItems_ = userInterface_->makeDeviceItems();
    deviceItems_->recordHotkey = lifetime_.guard([this](const DeviceSetting& device) { recordHotkey(device); });
    statusMenu_->setItemVisible(!settings_.boolValue(Keys::hideMenuIcon, false));
    addRefreshStep([this] { statusMenu_->refresh(); });
    addRefreshStep([this] { deviceItems_->refresh(); });
    status_.setTrayProblem([ui = userInterface_] { return ui->trayProblem(); });
    userInterface_->setTrayChanged(refreshAction_);
    // No tray to show the icon in a while after the start: the settings program says why, once.
    runtime_.main().after(trayGrace, lifetime_.guard([this] {
      if (!userInterface_->trayProblem().empty() && settings_.boolValue(Keys::onboardingDone, false)) {
        Log::info("no tray: " + userInterface_->trayProblem());
        chores_.settings.open(false);
      }
    }));
  }
  processes_.start();

  services_.pinner.onChange = refreshAction_;
  services_.mediaKeys.onChange = refreshAction_;
  services_.volume.onChange = refreshAction_;
  services_.mediaKeys.onIdlePlay = lifetime_.guard([this] { services_.idlePlay.handle(); });
  services_.battery.onChange = refreshAction_;
  services_.bluetooth.onChange = refreshAction_;
  services_.bluetooth.onConnected = lifetime_.guard(
      [this](const std::string& address, ConnectReason reason) { connected(address, reason); });
  services_.bluetooth.onDisconnected =
      lifetime_.guard([this](const std::string& address) { services_.switcher.cancel(address); });
  services_.switcher.reconnect = lifetime_.guard([this](const std::string& address, std::function<void(bool)> done) {
    repair(address, std::move(done));
  });

  services_.pinner.start();
  services_.profileGuard.onChange = refreshAction_;
  services_.profileGuard.start();
  services_.mediaKeys.start();
  services_.volume.start();

  // With no remembered headphones Bluetooth is not touched at launch, so nobody is asked for access.
  if (!settings_.devices().empty()) access_.whenAllowed(lifetime_.guard([this] { startBluetooth(); }));

  if (deviceItems_) deviceItems_->refresh();
  registerHotkeys();

  observations_.push_back(
      notifications_.observe(BluetoothAccess::changedName, lifetime_.guard([this](const std::string&) {
        refreshAction_();
      })));
  observations_.push_back(notifications_.observe(
      Settings::changedName, lifetime_.guard([this](const std::string& object) { settingsChanged(object); })));

  batteryTimer_ = runtime_.main().every(batteryInterval, batteryTolerance, lifetime_.guard([this] {
    auto devices = batteryDevices(true);
    if (!devices.empty()) services_.battery.refresh(std::move(devices));
  }));

  status_.listen({lifetime_.guard([this] { startBluetooth(); }),
                  lifetime_.guard([this](bool onboarding) { chores_.settings.open(onboarding); }),
                  lifetime_.guard([this] { host_.openBluetoothSettings(); }),
                  lifetime_.guard([this] { host_.showKeyAccess(); })});
  status_.publish();
  if (!settings_.boolValue(Keys::onboardingDone, false)) chores_.settings.open(true);

  // The start line names the accessibility answer, which comes back from the check's own queue.
  status_.accessibility().start(refreshAction_, lifetime_.guard([this] {
    Log::info(startLine());
    // Linux builds carry no update key: updates come from the package manager.
    Log::info("updates: off, no Sparkle public key in this build");
  }));
}

void AppDelegate::startBluetooth() {
  if (!services_.bluetooth.started()) services_.bluetooth.start();
}

void AppDelegate::connected(const std::string& address, ConnectReason reason) {
  if (reason == ConnectReason::user || reason == ConnectReason::wake) {
    services_.switcher.repairUsed.erase(address);
    services_.switcher.begin(address);
  }
  runtime_.main().after(batteryAfterConnect,
                        lifetime_.guard([this] { services_.battery.refresh(batteryDevices(true)); }));
}

void AppDelegate::repair(const std::string& rawAddress, std::function<void(bool)> completion) {
  const std::string address = normalizeAddress(rawAddress);
  const auto phase = services_.bluetooth.phaseOf(address);
  if (!phase || phase->kind() != BluetoothManager::Phase::Kind::connected) {
    completion(false);
    return;
  }
  services_.bluetooth.set(address, BluetoothManager::Phase::disconnecting());
  services_.bluetooth.disconnect(address, lifetime_.guard([this, address, completion] {
    runtime_.main().after(repairReconnectDelay, lifetime_.guard([this, address, completion] {
      services_.bluetooth.connect(address, ConnectReason::repair, 1, completion);
    }));
  }));
}

std::vector<std::pair<std::string, std::string>> AppDelegate::batteryDevices(bool connectedOnly) const {
  std::vector<std::pair<std::string, std::string>> out;
  for (const auto& device : settings_.devices()) {
    const std::string address = normalizeAddress(device.address);
    if (connectedOnly) {
      const auto phase = services_.bluetooth.phaseOf(address);
      if (!phase || phase->kind() != BluetoothManager::Phase::Kind::connected) continue;
    }
    out.emplace_back(address, device.name);
  }
  return out;
}

void AppDelegate::registerHotkeys() {
  if (hotkeys_ == nullptr) return;
  std::map<std::string, HotkeyCombo> wanted;
  for (const auto& device : settings_.devices()) {
    if (device.hotkey) wanted.emplace(normalizeAddress(device.address), *device.hotkey);
  }
  if (wanted == registeredHotkeys_) return;
  hotkeys_->removeAll();
  for (const auto& [key, combo] : wanted) {
    hotkeys_->registerKey(combo, lifetime_.guard([this, address = key] {
      access_.whenAllowed(lifetime_.guard([this, address] {
        startBluetooth();
        services_.bluetooth.toggle(address);
      }));
    }));
  }
  registeredHotkeys_ = std::move(wanted);
}

void AppDelegate::recordHotkey(const DeviceSetting& device) {
  const std::string address = normalizeAddress(device.address);
  // A combination that was refused is said first: the person came to change it.
  std::optional<HotkeyCombo> taken;
  if (device.hotkey && hotkeys_ != nullptr && hotkeys_->isTaken(*device.hotkey)) taken = device.hotkey;
  services_.recorder.record(ui::DeviceMenu::displayName(device),
                           lifetime_.guard([this, address](std::optional<HotkeyCombo> combo) {
                             if (!combo) return;
                             ui::DeviceMenu::update(settings_, address, [&combo](DeviceSetting& record) { record.hotkey = combo; });
                           }),
                           taken);
}

std::string AppDelegate::startLine() const {
  return "Wrenhaven " + build_.versionText() + " started on " + host_.systemVersion() + ", accessibility " +
         (status_.accessibility().trusted().value_or(false) ? "true" : "false") + ", " + std::to_string(settings_.devices().size()) +
         " saved devices";
}

void AppDelegate::settingsChanged(const std::string& object) {
  // The volume controller follows its own changes.
  if (object == "appVolumes") return;
  services_.pinner.settingsChanged();
  if (!settings_.devices().empty()) {
    access_.whenAllowed(lifetime_.guard([this] {
      startBluetooth();
      services_.bluetooth.refresh();
    }));
  }
  registerHotkeys();
  if (statusMenu_) statusMenu_->setItemVisible(!settings_.boolValue(Keys::hideMenuIcon, false));
  refreshAction_();
}

void AppDelegate::applicationWillTerminate() {
  Log::info("quitting");
  services_.volume.stop();
}

bool AppDelegate::applicationShouldHandleReopen() {
  if (settings_.boolValue(Keys::hideMenuIcon, false)) {
    settings_.store().set(Keys::hideMenuIcon, StoreValue::boolean(false));
    settings_.changed("");
    if (statusMenu_) statusMenu_->setItemVisible(true);
  }
  chores_.settings.open(!settings_.boolValue(Keys::onboardingDone, false));
  return true;
}

}  // namespace wh
